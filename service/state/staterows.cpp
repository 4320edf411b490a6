#include "service/state/staterows.h"

#include <climits>
#include <limits>

#include "service/logtext.h"

namespace VUKO::VUKOCrond::Service {

namespace {

constexpr std::int64_t LONGEST = std::numeric_limits<std::int64_t>::max();
/// The end of the year 9999, in seconds since the epoch.
constexpr std::int64_t EPOCH_MAX = 253402300799;
constexpr std::int64_t MINUTE_MAX = EPOCH_MAX / 60 + 24L * 60;
constexpr std::int64_t USEC_MAX = EPOCH_MAX * 1000000;
/// Of an exit status, a signal or an errno value.
constexpr std::int64_t CODE_MAX = 4095;
constexpr std::int64_t DELAY_MAX = INT_MAX;
/// Of outcomes, ever: more than there are minutes, and far from what cannot be counted on.
constexpr std::int64_t COUNT_MAX = LONGEST / 2;

/// In bytes. A definition has 256 KiB at most, and its drawn values not much more.
constexpr int TEXT_MAX = 1024 * 1024;
constexpr int PATH_TEXT_MAX = 4096;
constexpr int NAME_TEXT_MAX = 1024;
constexpr int LABEL_TEXT_MAX = 64;

/// Takes a row column by column; what is out of its bounds is remembered.
class RowReader {
public:
    explicit RowReader(const Query& query) : _query(query) {}

    std::int64_t Int(std::int64_t iMin, std::int64_t iMax) {
        const int iColumn = _iColumn++;
        const std::int64_t iValue = _query.Int(iColumn);
        _bGood = _bGood && _query.IsInt(iColumn) && iMin <= iValue && iValue <= iMax;
        return iValue;
    }

    template <typename Enum>
    Enum Choice(Enum eLast) {
        return static_cast<Enum>(Int(0, static_cast<std::int64_t>(eLast)));
    }

    std::string Text(int iMax) {
        const int iColumn = _iColumn++;
        _bGood = _bGood && _query.IsText(iColumn) && _query.TextSize(iColumn) <= iMax;
        return _bGood ? _query.Text(iColumn) : std::string();
    }

    bool IsGood() const { return _bGood; }

private:
    const Query& _query;
    int _iColumn = 0;
    bool _bGood = true;
};

RunEnd ReadEnd(RowReader& row) {
    RunEnd end;
    end.eKind = row.Choice(EndKind::Lost);
    end.iCode = static_cast<int>(row.Int(0, CODE_MAX));
    end.iStartedUsec = row.Int(0, USEC_MAX);
    end.iEndedUsec = row.Int(0, USEC_MAX);
    end.iDurationUsec = row.Int(0, LONGEST);
    end.iCpuUsec = row.Int(0, LONGEST);
    end.iMaxRssKib = row.Int(0, LONGEST);
    return end;
}

} // namespace

std::optional<StoredClock> ReadClock(const Query& query) {
    RowReader row(query);
    StoredClock clock;
    clock.iWorkedUpTo = row.Int(-MINUTE_MAX, MINUTE_MAX);
    clock.iLastTick = row.Int(-MINUTE_MAX, MINUTE_MAX);
    clock.iSleptSince = row.Int(-MINUTE_MAX, EPOCH_MAX);
    clock.uLastRun = static_cast<RunId>(row.Int(0, LONGEST));
    clock.strBootId = row.Text(NAME_TEXT_MAX);
    return row.IsGood() ? std::optional(clock) : std::nullopt;
}

std::optional<StoredJob> ReadJob(const Query& query) {
    RowReader row(query);
    StoredJob job;
    job.iKey = row.Int(1, LONGEST);
    job.iStartup = row.Int(0, EPOCH_MAX);
    job.iLastExecution = row.Int(-1, EPOCH_MAX);
    job.bOverdueReported = row.Int(0, 1) != 0;
    job.iGoneSince = row.Int(0, EPOCH_MAX);
    job.id.strFolder = row.Text(NAME_TEXT_MAX);
    job.id.strPackage = row.Text(NAME_TEXT_MAX);
    job.id.strName = row.Text(NAME_TEXT_MAX);
    job.strFile = row.Text(PATH_TEXT_MAX);
    job.strFields = row.Text(TEXT_MAX);
    job.strSchedule = row.Text(TEXT_MAX);
    row.Int(0, COUNT_MAX);
    return row.IsGood() ? std::optional(std::move(job)) : std::nullopt;
}

std::optional<StoredRun> ReadRun(const Query& query) {
    RowReader row(query);
    StoredRun run;
    Outcome& outcome = run.outcome;
    run.iJobKey = row.Int(1, LONGEST);
    outcome.iMinute = row.Int(-MINUTE_MAX, MINUTE_MAX);
    outcome.iDecided = row.Int(0, EPOCH_MAX);
    outcome.eKind = row.Choice(OutcomeKind::Skipped);
    outcome.eReason = row.Choice(SkipReason::IdentityRefused);
    outcome.iDelaySec = static_cast<int>(row.Int(0, DELAY_MAX));
    outcome.uRun = static_cast<RunId>(row.Int(0, LONGEST));
    outcome.pidOther = static_cast<pid_t>(row.Int(0, INT_MAX));
    outcome.iOtherSince = row.Int(0, EPOCH_MAX);
    outcome.end = ReadEnd(row);
    outcome.strLabel = row.Text(LABEL_TEXT_MAX);
    return row.IsGood() ? std::optional(std::move(run)) : std::nullopt;
}

std::string WhyNotStorable(const StoredJob& job) {
    const auto isTooLong = [](const std::string& strText, int iMax) {
        return strText.size() > static_cast<std::size_t>(iMax);
    };
    if (isTooLong(job.id.strFolder, NAME_TEXT_MAX) || isTooLong(job.id.strPackage, NAME_TEXT_MAX) ||
        isTooLong(job.id.strName, NAME_TEXT_MAX) || isTooLong(job.strFile, PATH_TEXT_MAX) ||
        isTooLong(job.strFields, TEXT_MAX) || isTooLong(job.strSchedule, TEXT_MAX)) {
        return "job " + Quoted(job.id.strName) + " has a text that is too long to be kept";
    }
    return std::string();
}

} // namespace VUKO::VUKOCrond::Service
