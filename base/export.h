#pragma once

/// Marks what the shared libraries export; everything else in them is hidden.
#define VUKO_API __attribute__((visibility("default")))
