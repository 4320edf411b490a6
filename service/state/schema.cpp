#include "service/state/schema.h"

#include <algorithm>
#include <array>
#include <vector>

#include "service/logtext.h"

namespace VUKO::VUKOCrond::Service {

namespace {

constexpr std::int64_t APPLICATION_ID = 0x76756b6f;
constexpr std::int64_t SCHEMA_VERSION = 1;

/// Numbers stand before texts, so that reading them never needs a second page.
constexpr std::array<const char*, 6> TABLES = {
    "CREATE TABLE clock (id INTEGER PRIMARY KEY, workedUpTo INTEGER NOT NULL, lastTick INTEGER NOT NULL,"
    " sleptSince INTEGER NOT NULL, lastRun INTEGER NOT NULL, bootId TEXT NOT NULL) STRICT",
    // About this copy itself: whether it is ahead of the persistent one, and whether it was closed in good order.
    "CREATE TABLE copy (id INTEGER PRIMARY KEY, ahead INTEGER NOT NULL, closed INTEGER NOT NULL) STRICT",
    "CREATE TABLE jobs (job INTEGER PRIMARY KEY, startup INTEGER NOT NULL, lastExecution INTEGER NOT NULL,"
    " overdueReported INTEGER NOT NULL, goneSince INTEGER NOT NULL, outcomes INTEGER NOT NULL, folder TEXT NOT NULL,"
    " package TEXT NOT NULL, name TEXT NOT NULL, file TEXT NOT NULL, fields TEXT NOT NULL, schedule TEXT NOT NULL,"
    " UNIQUE (folder, package, name)) STRICT",
    "CREATE TABLE outcomes (job INTEGER NOT NULL, slot INTEGER NOT NULL, minute INTEGER NOT NULL,"
    " decided INTEGER NOT NULL, kind INTEGER NOT NULL, reason INTEGER NOT NULL, delay INTEGER NOT NULL,"
    " run INTEGER NOT NULL, otherPid INTEGER NOT NULL, otherSince INTEGER NOT NULL, endKind INTEGER NOT NULL,"
    " code INTEGER NOT NULL, started INTEGER NOT NULL, ended INTEGER NOT NULL, duration INTEGER NOT NULL,"
    " cpu INTEGER NOT NULL, maxRss INTEGER NOT NULL, label TEXT NOT NULL, PRIMARY KEY (job, slot))"
    " STRICT, WITHOUT ROWID",
    "CREATE INDEX openRuns ON outcomes (run) WHERE endKind = 0 AND run <> 0",
    "CREATE INDEX goneJobs ON jobs (goneSince) WHERE goneSince <> 0"};

std::int64_t Number(const Connection& connection, const char* szSql, const char* szWhat) {
    Statement statement(connection, szSql, szWhat);
    Query query(statement);
    return query.Step() ? query.Int(0) : 0;
}

std::string Text(const Connection& connection, const char* szSql, const char* szWhat) {
    Statement statement(connection, szSql, szWhat);
    Query query(statement);
    return query.Step() ? query.Text(0) : std::string();
}

/// SQLite keeps the very texts that tables were made by: a column, a trigger or a view more would be seen.
bool HoldsOurTables(const Connection& connection) {
    std::vector<std::string> vecFound;
    Statement statement(connection, "SELECT sql FROM sqlite_schema WHERE sql IS NOT NULL", "read the tables");
    for (Query query(statement); query.Step() && vecFound.size() <= TABLES.size();) {
        vecFound.push_back(query.Text(0));
    }
    return std::is_permutation(vecFound.begin(), vecFound.end(), TABLES.begin(), TABLES.end());
}

/// Two bytes of a database say by which kind of journal it is written and read. With others than ours SQLite takes it
/// for one that it may only read, and a copy of it, too. (Read through SQLite's own descriptor: its lock goes when any
/// other one is closed.)
bool IsOfOurFormat(const Connection& connection) {
    constexpr int FORMAT_OFFSET = 18;
    constexpr unsigned char ROLLBACK_JOURNAL = 1;
    sqlite3_file* file = nullptr;
    unsigned char uszFormat[2] = {};
    return sqlite3_file_control(connection.Get(), "main", SQLITE_FCNTL_FILE_POINTER, &file) == SQLITE_OK &&
           file->pMethods->xRead(file, uszFormat, sizeof(uszFormat), FORMAT_OFFSET) == SQLITE_OK &&
           uszFormat[0] == ROLLBACK_JOURNAL && uszFormat[1] == ROLLBACK_JOURNAL;
}

} // namespace

void MakeTables(Connection& connection) {
    const std::string strIdentity = "PRAGMA application_id = " + std::to_string(APPLICATION_ID) +
                                    "; PRAGMA user_version = " + std::to_string(SCHEMA_VERSION) + ";";
    connection.Run("BEGIN EXCLUSIVE", "begin to make the tables");
    connection.Run(strIdentity.c_str(), "mark the file");
    for (const char* const szTable : TABLES) {
        connection.Run(szTable, "make the tables");
    }
    connection.Run("INSERT INTO clock VALUES (1, 0, 0, 0, 0, ''); INSERT INTO copy VALUES (1, 0, 1);",
                   "fill the tables");
    connection.Run("COMMIT", "make the tables");
}

std::string WhyNotOurs(const Connection& connection) {
    const std::int64_t iId = Number(connection, "PRAGMA application_id", "read the mark of the file");
    const std::int64_t iVersion = Number(connection, "PRAGMA user_version", "read the version");
    if (iId != APPLICATION_ID) {
        return "is not a state of this service";
    }
    if (iVersion != SCHEMA_VERSION) {
        return "is of version " + std::to_string(iVersion) +
               (iVersion > SCHEMA_VERSION ? ", of a newer service; this one knows version "
                                          : "; this service knows version ") +
               std::to_string(SCHEMA_VERSION);
    }
    if (!IsOfOurFormat(connection)) {
        return "is damaged: of a format that no service writes";
    }
    if (!HoldsOurTables(connection)) {
        return "has other tables than its version has";
    }
    return std::string();
}

std::string WhyDamaged(const Connection& connection) {
    const std::string strCheck = Text(connection, "PRAGMA quick_check(1)", "check the pages");
    if (strCheck != "ok") {
        return "is damaged: " + Quoted(strCheck, 120);
    }
    return std::string();
}

void CopyDatabase(const Connection& source, Connection& target) {
    struct Finisher {
        void operator()(sqlite3_backup* backup) const { sqlite3_backup_finish(backup); }
    };
    std::unique_ptr<sqlite3_backup, Finisher> backup(sqlite3_backup_init(target.Get(), "main", source.Get(), "main"));
    if (!backup) {
        target.Fail("begin the copy");
    }
    const int iCode = sqlite3_backup_step(backup.get(), -1);
    backup.reset(); // leaves its error with the target
    if (iCode != SQLITE_DONE) {
        target.Fail("copy the state");
    }
}

} // namespace VUKO::VUKOCrond::Service
