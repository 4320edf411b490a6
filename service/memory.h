#pragma once

namespace VUKO::VUKOCrond::Service {

/// Gives back memory that loading has left unused: what is on the heap costs every launch, whose fork has to copy its
/// page tables.
void GiveBackHeap();

/// Lets go of the pages of the program and its libraries that are in memory. Most were needed for the start alone, and
/// what is needed again is mapped again from the page cache when it is touched.
void GiveBackCode();

} // namespace VUKO::VUKOCrond::Service
