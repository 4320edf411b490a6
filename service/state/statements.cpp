#include "service/state/statements.h"

#include <initializer_list>

#include "service/state/staterows.h"

namespace VUKO::VUKOCrond::Service {

namespace {

/// Not with the operator +, many of which in one function make g++ 12 see copies beyond a text's end.
std::string Joined(std::initializer_list<const char*> pieces) {
    std::string strSql;
    for (const char* const szPiece : pieces) {
        strSql += szPiece;
    }
    return strSql;
}

} // namespace

std::string Select(const char* szColumns, const std::string& strRest) {
    return std::string("SELECT ") + szColumns + strRest;
}

Statements::Statements(const Connection& c)
    : begin(c, "BEGIN IMMEDIATE", "begin a transaction"), commit(c, "COMMIT", "commit a transaction"),
      setAhead(c, "UPDATE copy SET ahead = ?1 WHERE ahead <> ?1", "mark the working copy"),
      isSameClock(c, "SELECT 1 FROM clock WHERE bootId = ?1 AND sleptSince = ?2 AND lastRun = ?3", "read the clock"),
      putClock(c, Joined({"INSERT OR REPLACE INTO clock (id, ", CLOCK_COLUMNS, ") VALUES (1, ?, ?, ?, ?, ?)"}),
               "write the clock"),
      addJob(c,
             Joined({"INSERT INTO jobs (outcomes, ", JOB_COLUMNS,
                     ") VALUES (0, NULL, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?) ON CONFLICT (folder, package, name) DO UPDATE"
                     " SET startup = ?1, lastExecution = ?2, overdueReported = ?3, goneSince = ?4, file = ?8,"
                     " fields = ?9, schedule = ?10 RETURNING job"}),
             "add a job"),
      putJob(c,
             "UPDATE jobs SET startup = ?, lastExecution = ?, overdueReported = ?, goneSince = ?, folder = ?,"
             " package = ?, name = ?, file = ?, fields = ?, schedule = ? WHERE job = ?",
             "write a job"),
      dropLedger(c, "DELETE FROM outcomes WHERE job = ?", "drop a ledger"),
      dropJob(c, "DELETE FROM jobs WHERE job = ?", "drop a job"),
      countOutcome(c, "UPDATE jobs SET outcomes = outcomes + 1 WHERE job = ? RETURNING outcomes - 1",
                   "count an outcome"),
      makeRoom(c, "UPDATE outcomes SET slot = -run WHERE job = ? AND slot = ? AND endKind = 0 AND run <> 0",
               "make room in a ledger"),
      addOutcome(c,
                 Joined({"INSERT OR REPLACE INTO outcomes (slot, ", RUN_COLUMNS,
                         ") VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)"}),
                 "add an outcome"),
      updateRun(c,
                "UPDATE outcomes SET kind = ?, reason = ?, delay = ?, endKind = ?, code = ?, started = ?,"
                " ended = ?, duration = ?, cpu = ?, maxRss = ? WHERE job = ? AND run = ? AND run <> 0",
                "update a run"),
      dropEnded(c, "DELETE FROM outcomes WHERE job = ? AND slot = -?2 AND endKind <> 0", "drop an ended run"),
      history(c,
              Select(RUN_COLUMNS, " FROM outcomes WHERE job = ?1 AND slot >= 0 ORDER BY"
                                  " ((SELECT outcomes FROM jobs WHERE job = ?1) - 1 - slot) % ?2 LIMIT ?3"),
              "read a ledger") {}

} // namespace VUKO::VUKOCrond::Service
