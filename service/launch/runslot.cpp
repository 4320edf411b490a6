#include "service/launch/runslot.h"

namespace VUKO::VUKOCrond::Service {

namespace {

template <typename Member>
void Store(Member& member, Member value) {
    Shared(member).store(value, std::memory_order_relaxed);
}

} // namespace

bool RunChild::IsIn(RunStage eStage) const {
    return Shared(_pSlot->uState).load(std::memory_order_acquire) == StateOf(_uRun, eStage);
}

bool RunChild::Take(pid_t pidChild, std::uint64_t uChildStart) {
    if (!IsIn(RunStage::Offered)) {
        return false;
    }
    Store(_pSlot->iChild, std::int32_t{pidChild});
    Store(_pSlot->uChildStart, uChildStart);
    return ChangeStage(*_pSlot, _uRun, RunStage::Offered, RunStage::Waiting);
}

bool RunChild::Begin() {
    return ChangeStage(*_pSlot, _uRun, RunStage::Waiting, RunStage::Begun);
}

void RunChild::SetProgram(pid_t pidProgram, std::uint64_t uProgramStart) {
    Store(_pSlot->uProgramStart, uProgramStart);
    Shared(_pSlot->iProgram).store(pidProgram, std::memory_order_release);
}

bool RunChild::End(const RunEnd& end) {
    const RunStage eBefore = IsIn(RunStage::Begun) ? RunStage::Begun : RunStage::Waiting;
    if (!IsIn(eBefore)) {
        return false;
    }
    Store(_pSlot->iEndKind, static_cast<std::int32_t>(end.eKind));
    Store(_pSlot->iEndCode, std::int32_t{end.iCode});
    Store(_pSlot->iStartedUsec, end.iStartedUsec);
    Store(_pSlot->iEndedUsec, end.iEndedUsec);
    Store(_pSlot->iDurationUsec, end.iDurationUsec);
    Store(_pSlot->iCpuUsec, end.iCpuUsec);
    Store(_pSlot->iMaxRssKib, end.iMaxRssKib);
    return ChangeStage(*_pSlot, _uRun, eBefore, RunStage::Ended);
}

void RunChild::CountUntold() {
    Shared(*_puUntold).fetch_add(1);
}

} // namespace VUKO::VUKOCrond::Service
