#include "service/memory.h"

#include <link.h>
#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>

namespace VUKO::VUKOCrond::Service {

namespace {

/// Whole pages of segments that nothing has written to: a page that was written to would lose that.
int LetGoOfObject(dl_phdr_info* pInfo, std::size_t /*uSize*/, void* /*pContext*/) {
    const auto uPage = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    for (int i = 0; i < pInfo->dlpi_phnum; ++i) {
        const ElfW(Phdr)& segment = pInfo->dlpi_phdr[i];
        if (segment.p_type != PT_LOAD || (segment.p_flags & PF_W) != 0) {
            continue;
        }
        const std::uintptr_t uBegin = (pInfo->dlpi_addr + segment.p_vaddr) & ~(uPage - 1);
        const std::uintptr_t uEnd = (pInfo->dlpi_addr + segment.p_vaddr + segment.p_filesz) & ~(uPage - 1);
        if (uBegin < uEnd) {
            (void)madvise(reinterpret_cast<void*>(uBegin), uEnd - uBegin, MADV_DONTNEED); // a hint: it may be refused
        }
    }
    return 0;
}

} // namespace

void GiveBackHeap() {
    malloc_trim(0);
}

void GiveBackCode() {
    dl_iterate_phdr(LetGoOfObject, nullptr);
}

} // namespace VUKO::VUKOCrond::Service
