#pragma once

#include <cstdint>
#include <string>

#include "service/launch/runslot.h"

namespace VUKO::VUKOCrond::Service {

constexpr std::uint32_t RUN_SLOTS = 8192;

/// The run table's file, mapped.
class RunFile {
public:
    /// As RunTable has it.
    RunFile(const std::string& strPath, const std::string& strBootId);
    ~RunFile();
    RunFile(const RunFile&) = delete;
    RunFile& operator=(const RunFile&) = delete;

    /// Made just now: every slot is free.
    bool IsNew() const { return _bNew; }
    RunSlot& Slot(std::uint32_t uSlot) const { return _pLayout->aSlots[uSlot]; }
    std::uint32_t& Untold() const { return _pLayout->uUntold; }
    /// To be called when all slots have been looked through: that has touched all of the memory, most of which is never
    /// used.
    void LetGoOfMemory();

private:
    struct Layout {
        std::uint64_t uMagic;
        std::uint32_t uVersion;
        std::uint32_t uSlots;
        std::uint32_t uUntold;
        char szBootId[100];
        RunSlot aSlots[RUN_SLOTS];
    };

    enum class Found { Nothing, FromThisBoot, FromAnotherBoot, Unusable };

    /// Maps the file where it can be used, whatever its boot. Why it cannot goes to `strFault`.
    Found OpenExisting(const std::string& strPath, const std::string& strBootId, std::string& strFault);
    void Make(const std::string& strPath, const std::string& strBootId);
    void Map(int iFd);
    void Unmap();
    const char* FaultOfContent() const;

    Layout* _pLayout = nullptr;
    bool _bNew = false;
};

} // namespace VUKO::VUKOCrond::Service
