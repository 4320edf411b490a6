#pragma once

#include <cstddef>

namespace VUKO::PLATFORM {

/// Fills a buffer with random bytes of the operating system: getrandom(2), else /dev/urandom. Where there is neither
/// (an old kernel and an empty /dev), clocks and ids stand in: good enough to tell processes apart, no secret. errno
/// is as before.
void FillWithEntropy(void* pBuffer, std::size_t uSize);

} // namespace VUKO::PLATFORM
