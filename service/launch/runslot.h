#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "service/launch/runtable.h"

namespace VUKO::VUKOCrond::Service {

/// One launch as it lies in the run table's file. Several processes read and write it: each member by itself, and what
/// belongs to a stage is written before the stage.
struct alignas(128) RunSlot {
    std::uint64_t uState; ///< the run and its stage in one word: a process that is late never takes another run's slot
    std::uint64_t uChildStart;
    std::uint64_t uProgramStart;
    std::int32_t iChild;
    std::int32_t iProgram;
    std::int32_t iEndKind;
    std::int32_t iEndCode;
    std::int64_t iStartedUsec;
    std::int64_t iEndedUsec;
    std::int64_t iDurationUsec;
    std::int64_t iCpuUsec;
    std::int64_t iMaxRssKib;
};
static_assert(sizeof(RunSlot) == 128 && std::is_trivial_v<RunSlot>);

/// Several of our processes have a part in a launch: a lock of the C++ library's would be one process's own.
template <typename Member>
std::atomic_ref<Member> Shared(Member& member) {
    static_assert(std::atomic_ref<Member>::is_always_lock_free);
    return std::atomic_ref<Member>(member);
}

constexpr unsigned STAGE_BITS = 3;

constexpr std::uint64_t StateOf(RunId uRun, RunStage eStage) {
    return (uRun << STAGE_BITS) | static_cast<std::uint64_t>(eStage);
}
constexpr RunStage StageOf(std::uint64_t uState) {
    return static_cast<RunStage>(uState & ((1U << STAGE_BITS) - 1));
}
constexpr RunId RunOf(std::uint64_t uState) {
    return uState >> STAGE_BITS;
}

/// @return false when the slot is in another stage, or another run's.
inline bool ChangeStage(RunSlot& slot, RunId uRun, RunStage eFrom, RunStage eTo) {
    std::uint64_t uFrom = StateOf(uRun, eFrom);
    return Shared(slot.uState).compare_exchange_strong(uFrom, StateOf(uRun, eTo));
}

/// The child's side of a launch: what is taken, begun and ended here is what the service reads there.
class RunChild {
public:
    RunChild() = default;
    /// For a launch that has been offered; to be made before the fork.
    RunChild(RunTable& table, RunId uRun);

    /// From offered to waiting. @return false when the launch was taken back.
    bool Take(pid_t pidChild, std::uint64_t uChildStart);
    /// From waiting to begun. @return false when the launch was taken back.
    bool Begin();
    /// The begun launch's program.
    void SetProgram(pid_t pidProgram, std::uint64_t uProgramStart);
    /// To ended, from waiting (nothing was started) or begun. Nothing of the slot may be touched after this: it may be
    /// another launch's. @return false when the launch was taken back.
    bool End(const RunEnd& end);
    /// Something that the service should know was written to the table alone.
    void CountUntold();

private:
    bool IsIn(RunStage eStage) const;

    RunId _uRun = 0;
    RunSlot* _pSlot = nullptr;
    std::uint32_t* _puUntold = nullptr;
};

} // namespace VUKO::VUKOCrond::Service
