#include "service/launch/runtable.h"

#include <sys/mman.h>

#include <algorithm>
#include <deque>
#include <unordered_map>

#include "service/launch/processid.h"
#include "service/launch/runfile.h"
#include "service/launch/runslot.h"

namespace VUKO::VUKOCrond::Service {

namespace {

RunRecord CopyOf(RunSlot& slot) {
    RunRecord record;
    const std::uint64_t uState = Shared(slot.uState).load(std::memory_order_acquire);
    record.uRun = RunOf(uState);
    record.eStage = StageOf(uState);
    record.pidProgram = Shared(slot.iProgram).load(std::memory_order_acquire);
    record.uProgramStart = Shared(slot.uProgramStart).load(std::memory_order_relaxed);
    if (record.eStage != RunStage::Offered) { // a child that may yet find it taken back writes these before it takes it
        record.pidChild = Shared(slot.iChild).load(std::memory_order_relaxed);
        record.uChildStart = Shared(slot.uChildStart).load(std::memory_order_relaxed);
    }
    if (record.eStage == RunStage::Ended) {
        record.end.eKind = static_cast<EndKind>(Shared(slot.iEndKind).load(std::memory_order_relaxed));
        record.end.iCode = Shared(slot.iEndCode).load(std::memory_order_relaxed);
        record.end.iStartedUsec = Shared(slot.iStartedUsec).load(std::memory_order_relaxed);
        record.end.iEndedUsec = Shared(slot.iEndedUsec).load(std::memory_order_relaxed);
        record.end.iDurationUsec = Shared(slot.iDurationUsec).load(std::memory_order_relaxed);
        record.end.iCpuUsec = Shared(slot.iCpuUsec).load(std::memory_order_relaxed);
        record.end.iMaxRssKib = Shared(slot.iMaxRssKib).load(std::memory_order_relaxed);
    }
    return record;
}

} // namespace

/// Only the service takes slots and gives them back, so it knows which are taken without looking.
struct RunTable::Private {
    struct Entry {
        RunSlot* pSlot;
        unsigned uHeard;
    };

    RunFile file;
    std::unordered_map<RunId, Entry> mapEntries;
    std::deque<RunSlot*> queueFree;
    std::uint32_t uUnused =
        0; ///< the slots from here on are free, and were not taken in this life: their memory is not touched

    Private(const std::string& strPath, const std::string& strBootId) : file(strPath, strBootId) {
        if (file.IsNew()) {
            return;
        }
        for (std::uint32_t uSlot = 0; uSlot < RUN_SLOTS; ++uSlot) {
            RunSlot& slot = file.Slot(uSlot);
            if (const std::uint64_t uState = Shared(slot.uState).load(std::memory_order_acquire); uState != 0) {
                mapEntries.emplace(RunOf(uState), Entry{&slot, 0});
                for (; uUnused < uSlot; ++uUnused) {
                    queueFree.push_back(&file.Slot(uUnused));
                }
                uUnused = uSlot + 1;
            }
        }
        file.LetGoOfMemory();
    }

    RunSlot* SlotOf(RunId uRun) const {
        const auto itEntry = mapEntries.find(uRun);
        return itEntry == mapEntries.end() ? nullptr : itEntry->second.pSlot;
    }

    RunSlot* TakeFreeSlot() {
        if (!queueFree.empty()) {
            RunSlot* const pSlot = queueFree.front();
            queueFree.pop_front();
            return pSlot;
        }
        return uUnused < RUN_SLOTS ? &file.Slot(uUnused++) : nullptr;
    }
};

RunTable::RunTable(const std::string& strPath, const std::string& strBootId)
    : _p(std::make_unique<Private>(strPath, strBootId)) {}

RunTable::~RunTable() = default;

bool RunTable::IsNew() const {
    return _p->file.IsNew();
}

std::vector<RunRecord> RunTable::Records() const {
    std::vector<RunRecord> vecRecords;
    vecRecords.reserve(_p->mapEntries.size());
    for (const auto& [uRun, entry] : _p->mapEntries) {
        vecRecords.push_back(CopyOf(*entry.pSlot));
    }
    std::sort(vecRecords.begin(), vecRecords.end(),
              [](const RunRecord& left, const RunRecord& right) { return left.uRun < right.uRun; });
    return vecRecords;
}

std::optional<RunRecord> RunTable::Find(RunId uRun) const {
    RunSlot* const pSlot = _p->SlotOf(uRun);
    return pSlot == nullptr ? std::nullopt : std::optional(CopyOf(*pSlot));
}

bool RunTable::Offer(RunId uRun) {
    if (uRun == 0 || _p->SlotOf(uRun) != nullptr) {
        return false;
    }
    RunSlot* const pSlot = _p->TakeFreeSlot();
    if (pSlot == nullptr) {
        return false;
    }
    _p->mapEntries.emplace(uRun, Private::Entry{pSlot, 0});
    *pSlot = RunSlot{};
    Shared(pSlot->uState).store(StateOf(uRun, RunStage::Offered), std::memory_order_release);
    return true;
}

bool RunTable::Revoke(RunId uRun) {
    RunSlot* const pSlot = _p->SlotOf(uRun);
    if (pSlot == nullptr) {
        return false;
    }
    if (ChangeStage(*pSlot, uRun, RunStage::Offered, RunStage::Revoked)) {
        return true;
    }
    const RunRecord record = CopyOf(*pSlot);
    if (record.eStage == RunStage::Waiting && !IsRunning(record.pidChild, record.uChildStart)) {
        return ChangeStage(*pSlot, uRun, RunStage::Waiting, RunStage::Revoked);
    }
    return record.eStage == RunStage::Revoked;
}

void RunTable::Release(RunId uRun) {
    RunSlot* const pSlot = _p->SlotOf(uRun);
    if (pSlot == nullptr) {
        return;
    }
    _p->mapEntries.erase(uRun);
    const RunStage eBefore = StageOf(Shared(pSlot->uState).exchange(0));
    if (eBefore == RunStage::Ended) {
        _p->queueFree.push_front(pSlot); // its memory is in use already
    } else {
        _p->queueFree.push_back(pSlot); // a child that is very late should meet no launch of another's here
    }
}

bool RunTable::MarkHeard(RunId uRun, unsigned uWhat) {
    const auto itEntry = _p->mapEntries.find(uRun);
    if (itEntry == _p->mapEntries.end() || (itEntry->second.uHeard & uWhat) != 0) {
        return false;
    }
    itEntry->second.uHeard |= uWhat;
    return true;
}

std::uint32_t RunTable::Untold() const {
    return Shared(_p->file.Untold()).load();
}

RunChild::RunChild(RunTable& table, RunId uRun)
    : _uRun(uRun), _pSlot(table._p->SlotOf(uRun)), _puUntold(&table._p->file.Untold()) {}

} // namespace VUKO::VUKOCrond::Service
