#include "service/state/statestore.h"

#include <unistd.h>

#include <algorithm>
#include <limits>

#include "service/logtext.h"
#include "service/state/statements.h"
#include "service/state/staterows.h"
#include "service/state/workingcopy.h"

namespace VUKO::VUKOCrond::Service {

namespace {

/// Notes about single rows; a file may hold any number of bad ones.
constexpr std::size_t ROW_NOTES_MAX = 10;

std::int64_t ToInt(std::size_t uValue) {
    return static_cast<std::int64_t>(std::min<std::size_t>(uValue, std::numeric_limits<std::int64_t>::max()));
}

} // namespace

struct StateStore::Private {
    Private(std::string strWorking, std::string strPersistent)
        : _strWorking(std::move(strWorking)), _strPersistent(std::move(strPersistent)) {
        Open();
    }

    /// A copy that was found corrupt is not called closed, so that the next one to open it looks at all of it.
    ~Private() {
        if (getpid() != _pidOwner) {
            // A forked child's: closing would end the transaction that the service may be in.
            static_cast<void>(_statements.release());
            static_cast<void>(_copy.connection.release());
            return;
        }
        Rollback();
        try {
            if (!_bCorrupt) {
                MarkClosed(*_copy.connection);
            }
        } catch (const StateError&) {
            // The next one to open it looks at all of it, then.
        }
    }
    Private(const Private&) = delete;
    Private& operator=(const Private&) = delete;

    void Open() {
        _copy = OpenWorkingCopy(_strWorking, _strPersistent, _vecNotes);
        _statements = std::make_unique<Statements>(*_copy.connection);
    }

    /// The working copy turned out to be damaged: the persistent one takes its place.
    void StartOver(const SqliteError& error) {
        _statements.reset();
        _copy.connection.reset();
        _bCorrupt = false;
        SetAsideAndNote(_strWorking, "is damaged: " + error.Reason(), _vecNotes);
        Open();
    }

    /// Remembers when damage came to light.
    template <typename Body>
    auto Watched(Body body) {
        try {
            return body();
        } catch (const SqliteError& error) {
            _bCorrupt = _bCorrupt || error.IsCorruption();
            throw;
        }
    }

    template <typename Body>
    auto OrRollback(Body body) {
        try {
            return Watched(body);
        } catch (...) {
            Rollback();
            throw;
        }
    }

    /// Does one of the changes of a transaction, all of which are undone when it fails.
    template <typename Body>
    auto Change(Body body) {
        if (!_copy.connection->IsInTransaction()) {
            throw StateError(Escaped(_strWorking) + ": a change outside of a transaction");
        }
        return OrRollback(body);
    }

    void Begin() {
        OrRollback([this] { return Query(_statements->begin).Run(); });
        _bChanged = false;
    }

    void Commit() {
        if (_bChanged && !_copy.bAhead) {
            Query(_statements->setAhead, 1).Run();
        }
        Query(_statements->commit).Run();
        _copy.bAhead = _copy.bAhead || _bChanged;
    }

    void Rollback() noexcept {
        if (_copy.connection->IsInTransaction()) {
            sqlite3_exec(_copy.connection->Get(), "ROLLBACK", nullptr, nullptr, nullptr);
        }
    }

    StoredState LoadAll() {
        StoredState state;
        LoadClock(state.clock);
        LoadJobs(state.vecJobs);
        LoadOpenRuns(state);
        return state;
    }

    void LoadClock(StoredClock& clock) {
        Statement select(*_copy.connection, Select(CLOCK_COLUMNS, " FROM clock WHERE id = 1"), "read the clock");
        Query query(select);
        const auto read = query.Step() ? ReadClock(query) : std::nullopt;
        if (read) {
            clock = *read;
        } else {
            NoteRow("the clock");
        }
    }

    void LoadJobs(std::vector<StoredJob>& vecJobs) {
        std::vector<std::int64_t> vecBad;
        {
            Statement select(*_copy.connection, Select(JOB_COLUMNS, ", outcomes FROM jobs ORDER BY job"),
                             "read the jobs");
            for (Query query(select); query.Step();) {
                if (auto job = ReadJob(query)) {
                    vecJobs.push_back(std::move(*job));
                } else {
                    vecBad.push_back(query.Int(0));
                    NoteRow("job " + std::to_string(query.Int(0)));
                }
            }
        }
        DropAll(vecBad, [this](std::int64_t iKey) { Drop(iKey); });
    }

    void LoadOpenRuns(StoredState& state) {
        std::vector<std::pair<std::int64_t, std::int64_t>> vecBad;
        {
            Statement select(*_copy.connection,
                             Select(RUN_COLUMNS, ", slot FROM outcomes WHERE endKind = 0 AND run <> 0 ORDER BY run"),
                             "read the open runs");
            constexpr int SLOT_COLUMN = 17;
            for (Query query(select); query.Step();) {
                auto run = ReadRun(query);
                if (run && IsKnown(state.vecJobs, run->iJobKey)) {
                    state.clock.uLastRun = std::max(state.clock.uLastRun, run->outcome.uRun);
                    state.vecOpenRuns.push_back(std::move(*run));
                } else {
                    vecBad.emplace_back(query.Int(0), query.Int(SLOT_COLUMN));
                    NoteRow("a run of job " + std::to_string(query.Int(0)));
                }
            }
        }
        Statement drop(*_copy.connection, "DELETE FROM outcomes WHERE job = ? AND slot = ?", "drop a run");
        DropAll(vecBad, [&](const auto& bad) { Query(drop, bad.first, bad.second).Run(); });
    }

    static bool IsKnown(const std::vector<StoredJob>& vecJobs, std::int64_t iKey) {
        const auto it = std::lower_bound(vecJobs.begin(), vecJobs.end(), iKey,
                                         [](const StoredJob& job, std::int64_t iOther) { return job.iKey < iOther; });
        return it != vecJobs.end() && it->iKey == iKey;
    }

    template <typename Row, typename DropOne>
    void DropAll(const std::vector<Row>& vecBad, DropOne dropOne) {
        if (vecBad.empty()) {
            return;
        }
        Begin();
        OrRollback([&] {
            std::for_each(vecBad.begin(), vecBad.end(), dropOne);
            _bChanged = true;
            Commit();
        });
    }

    void Drop(std::int64_t iKey) {
        Query(_statements->dropLedger, iKey).Run();
        Query(_statements->dropJob, iKey).Run();
    }

    void NoteRow(const std::string& strWhat) {
        ++_uRowNotes;
        if (_uRowNotes < ROW_NOTES_MAX) {
            _vecNotes.push_back(Escaped(_strWorking) + ": " + strWhat + " makes no sense and is dropped");
        } else if (_uRowNotes == ROW_NOTES_MAX) {
            _vecNotes.push_back(Escaped(_strWorking) + ": more makes no sense and is dropped");
        }
    }

    std::string _strWorking;
    std::string _strPersistent;
    std::vector<std::string> _vecNotes;
    std::size_t _uRowNotes = 0;
    WorkingCopy _copy;
    std::unique_ptr<Statements> _statements;
    const pid_t _pidOwner = getpid();
    bool _bChanged = false; ///< in this transaction
    bool _bCorrupt = false; ///< found since it was opened
};

StateStore::StateStore(std::string strWorkingPath, std::string strPersistentPath)
    : _p(std::make_unique<Private>(std::move(strWorkingPath), std::move(strPersistentPath))) {}

StateStore::~StateStore() = default;

const std::vector<std::string>& StateStore::Notes() const {
    return _p->_vecNotes;
}

bool StateStore::IsFresh() const {
    return _p->_copy.bFresh;
}

StoredState StateStore::Load() {
    try {
        return _p->LoadAll();
    } catch (const SqliteError& error) {
        if (!error.IsDamage()) {
            throw;
        }
        _p->StartOver(error);
    }
    return _p->LoadAll();
}

void StateStore::Begin() {
    _p->Begin();
}

void StateStore::Commit() {
    _p->Change([this] { _p->Commit(); });
}

void StateStore::Rollback() noexcept {
    _p->Rollback();
}

void StateStore::PutClock(const StoredClock& clock) {
    _p->Change([&] {
        const auto iLastRun = static_cast<std::int64_t>(clock.uLastRun);
        // How far the clock was worked on is of no use to a later boot: for that alone no disk is to be woken.
        const bool bSame = Query(_p->_statements->isSameClock, clock.strBootId, clock.iSleptSince, iLastRun).Step();
        Query(_p->_statements->putClock, clock.iWorkedUpTo, clock.iLastTick, clock.iSleptSince, iLastRun,
              clock.strBootId)
            .Run();
        _p->_bChanged = _p->_bChanged || !bSame;
    });
}

std::int64_t StateStore::PutJob(const StoredJob& job) {
    return _p->Change([&] {
        const std::string strWhy = WhyNotStorable(job);
        if (!strWhy.empty()) {
            throw StateError(Escaped(_p->_strWorking) + ": " + strWhy);
        }
        const std::int64_t iOverdueReported = job.bOverdueReported ? 1 : 0;
        _p->_bChanged = true;
        if (job.iKey == 0) {
            Query query(_p->_statements->addJob, job.iStartup, job.iLastExecution, iOverdueReported, job.iGoneSince,
                        job.id.strFolder, job.id.strPackage, job.id.strName, job.strFile, job.strFields,
                        job.strSchedule);
            query.Step();
            const std::int64_t iKey = query.Int(0);
            query.Run();
            return iKey;
        }
        const int iChanged = Query(_p->_statements->putJob, job.iStartup, job.iLastExecution, iOverdueReported,
                                   job.iGoneSince, job.id.strFolder, job.id.strPackage, job.id.strName, job.strFile,
                                   job.strFields, job.strSchedule, job.iKey)
                                 .Run();
        if (iChanged != 1) {
            throw StateError(Escaped(_p->_strWorking) + ": there is no job " + std::to_string(job.iKey));
        }
        return job.iKey;
    });
}

void StateStore::ForgetJob(std::int64_t iKey) {
    _p->Change([&] {
        _p->Drop(iKey);
        _p->_bChanged = true;
    });
}

void StateStore::DropGoneBefore(std::int64_t iEpoch) {
    _p->Change([&] {
        std::vector<std::int64_t> vecKeys;
        Statement select(*_p->_copy.connection,
                         "SELECT job FROM jobs WHERE goneSince <> 0 AND goneSince < ? AND job NOT IN"
                         " (SELECT job FROM outcomes WHERE endKind = 0 AND run <> 0)",
                         "read which jobs are gone");
        for (Query query(select, iEpoch); query.Step();) {
            vecKeys.push_back(query.Int(0));
        }
        for (const std::int64_t iKey : vecKeys) {
            _p->Drop(iKey);
            _p->_bChanged = true;
        }
    });
}

void StateStore::AddOutcome(std::int64_t iKey, const Outcome& outcome) {
    _p->Change([&] {
        Statements& statements = *_p->_statements;
        std::int64_t iCount = -1;
        {
            Query query(statements.countOutcome, iKey);
            iCount = query.Step() ? query.Int(0) : -1;
            query.Run();
        }
        if (iCount < 0) {
            throw StateError(Escaped(_p->_strWorking) + ": there is no job " + std::to_string(iKey));
        }
        const std::int64_t iSlot = iCount % LEDGER_DEPTH;
        if (iCount >= LEDGER_DEPTH) {
            Query(statements.makeRoom, iKey, iSlot).Run();
        }
        const RunEnd& end = outcome.end;
        Query(statements.addOutcome, iSlot, iKey, outcome.iMinute, outcome.iDecided, static_cast<int>(outcome.eKind),
              static_cast<int>(outcome.eReason), outcome.iDelaySec, static_cast<std::int64_t>(outcome.uRun),
              outcome.pidOther, outcome.iOtherSince, static_cast<int>(end.eKind), end.iCode, end.iStartedUsec,
              end.iEndedUsec, end.iDurationUsec, end.iCpuUsec, end.iMaxRssKib, outcome.strLabel)
            .Run();
        _p->_bChanged = true;
    });
}

void StateStore::UpdateRun(std::int64_t iKey, const Outcome& outcome) {
    _p->Change([&] {
        const RunEnd& end = outcome.end;
        const auto iRun = static_cast<std::int64_t>(outcome.uRun);
        const int iChanged =
            Query(_p->_statements->updateRun, static_cast<int>(outcome.eKind), static_cast<int>(outcome.eReason),
                  outcome.iDelaySec, static_cast<int>(end.eKind), end.iCode, end.iStartedUsec, end.iEndedUsec,
                  end.iDurationUsec, end.iCpuUsec, end.iMaxRssKib, iKey, iRun)
                .Run();
        Query(_p->_statements->dropEnded, iKey, iRun).Run();
        _p->_bChanged = _p->_bChanged || iChanged > 0;
    });
}

std::vector<Outcome> StateStore::History(std::int64_t iKey, std::size_t uMax) {
    std::vector<Outcome> vecOutcomes;
    _p->Watched([&] {
        for (Query query(_p->_statements->history, iKey, LEDGER_DEPTH, ToInt(uMax)); query.Step();) {
            if (auto run = ReadRun(query)) {
                vecOutcomes.push_back(std::move(run->outcome));
            }
        }
    });
    return vecOutcomes;
}

bool StateStore::IsDirty() const {
    return _p->_copy.bAhead;
}

void StateStore::Persist() {
    if (!_p->_copy.bAhead) {
        return;
    }
    if (_p->_bCorrupt) {
        throw StateError(Escaped(_p->_strWorking) + ": damaged, and not to take the place of the persistent copy");
    }
    WritePersistentCopy(*_p->_copy.connection, _p->_strPersistent);
    _p->_copy.bAhead = false;
    Query(_p->_statements->setAhead, 0).Run();
}

} // namespace VUKO::VUKOCrond::Service
