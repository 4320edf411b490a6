#include "service/state/workingcopy.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "service/logtext.h"
#include "service/state/schema.h"
#include "service/state/statefile.h"

namespace VUKO::VUKOCrond::Service {

namespace {

/// The file must survive the death of the process and not that of the machine: what was handed to the kernel is as good
/// as kept. Hence nothing is synced, but there is a journal. One lock for the whole life saves four calls a commit.
constexpr const char* WORKING_SETTINGS = "PRAGMA locking_mode = EXCLUSIVE; PRAGMA journal_mode = TRUNCATE;"
                                         "PRAGMA synchronous = OFF;"
                                         "PRAGMA cache_size = -128; PRAGMA temp_store = MEMORY;"
                                         "PRAGMA secure_delete = OFF;";
/// Nobody reads a new file before it is complete: it needs no journal beside it. (SQLite does not do without any where
/// it is told to be careful.)
constexpr const char* NEW_SETTINGS = "PRAGMA locking_mode = EXCLUSIVE; PRAGMA journal_mode = MEMORY;"
                                     "PRAGMA synchronous = OFF; PRAGMA cache_size = -128;";

using MaybeConnection = std::unique_ptr<Connection>;

/// A copy that was closed in good order is believed without a look at every page, which takes half a second for ten
/// thousand jobs with full ledgers. What a service leaves that died of its own broken memory is not.
bool WasClosed(const Connection& connection) {
    Statement closed(connection, "SELECT closed FROM copy", "read the working copy");
    Query query(closed);
    return query.Step() && query.Int(0) == 1;
}

void MarkOpen(Connection& working) {
    working.Run("UPDATE copy SET closed = 0", "mark the working copy");
}

enum class Role { Working, Persistent };

/// Opens a database by a function, unless its content is at fault.
template <typename Open>
MaybeConnection OpenUndamaged(std::string& strWhy, Role eRole, Open open) {
    try {
        MaybeConnection connection = open();
        strWhy = WhyNotOurs(*connection);
        if (strWhy.empty() && (eRole == Role::Persistent || !WasClosed(*connection))) {
            strWhy = WhyDamaged(*connection);
        }
        if (strWhy.empty() && eRole == Role::Working) {
            MarkOpen(*connection);
        }
        return strWhy.empty() ? std::move(connection) : nullptr;
    } catch (const SqliteError& error) {
        if (!error.IsDamage()) {
            throw;
        }
        strWhy = "is damaged: " + error.Reason();
        return nullptr;
    }
}

/// SQLite opens what it cannot write for reading only, and fails later.
void RefuseReadOnly(const Connection& connection) {
    if (sqlite3_db_readonly(connection.Get(), "main") != 0 && access(connection.Path().c_str(), W_OK) != 0) {
        throw StateError(Escaped(connection.Path()) + ": cannot be written: " + strerror(errno));
    }
}

MaybeConnection OpenLocked(const std::string& strPath) {
    auto connection = std::make_unique<Connection>(strPath, Connection::Access::ReadWrite);
    connection->Run(WORKING_SETTINGS, "take the working copy");
    connection->Run("BEGIN EXCLUSIVE; COMMIT", "take the working copy"); // what a killed writer began is undone here
    RefuseReadOnly(*connection);
    return connection;
}

/// Opens a copy by a function if there is one and it can be used; else it is set aside.
template <typename Open>
MaybeConnection OpenExisting(const std::string& strPath, Role eRole, std::vector<std::string>& vecNotes, Open open) {
    if (!IsThere(strPath)) {
        return nullptr;
    }
    std::string strWhy = WhyNoStateFile(strPath);
    if (strWhy.empty()) {
        if (MaybeConnection connection = OpenUndamaged(strWhy, eRole, open)) {
            return connection;
        }
    }
    SetAsideAndNote(strPath, strWhy, vecNotes);
    return nullptr;
}

/// A persistent copy that cannot be used keeps nobody from working.
MaybeConnection OpenPersistent(const std::string& strPath, std::vector<std::string>& vecNotes) {
    try {
        return OpenExisting(strPath, Role::Persistent, vecNotes,
                            [&] { return std::make_unique<Connection>(strPath, Connection::Access::Unchanging); });
    } catch (const StateError& error) {
        vecNotes.push_back(std::string(error.what()) + ": it is not used");
        return nullptr;
    }
}

void MakeWorkingCopy(const std::string& strPath, const Connection* source) {
    NewFile file(strPath);
    {
        Connection target(file.Path(), Connection::Access::ReadWrite);
        target.Run(NEW_SETTINGS, "set up a new copy");
        if (source != nullptr) {
            CopyDatabase(*source, target);
            target.Run("UPDATE copy SET ahead = 0", "mark the new copy");
        } else {
            MakeTables(target);
        }
    }
    file.Put(false);
}

} // namespace

void MarkClosed(Connection& working) {
    working.Run("UPDATE copy SET closed = 1; PRAGMA journal_mode = DELETE", "mark the working copy");
}

WorkingCopy OpenWorkingCopy(const std::string& strWorking, const std::string& strPersistent,
                            std::vector<std::string>& vecNotes) {
    WorkingCopy copy;
    copy.connection = OpenExisting(strWorking, Role::Working, vecNotes, [&] { return OpenLocked(strWorking); });
    if (!copy.connection) {
        copy.bFresh = true;
        MakeWorkingCopy(strWorking, OpenPersistent(strPersistent, vecNotes).get());
        copy.connection = OpenLocked(strWorking);
        MarkOpen(*copy.connection);
        return copy;
    }
    Statement ahead(*copy.connection, "SELECT ahead FROM copy", "read the working copy");
    Query query(ahead);
    copy.bAhead = !query.Step() || query.Int(0) != 0 || !IsThere(strPersistent);
    return copy;
}

void WritePersistentCopy(const Connection& working, const std::string& strPersistent) {
    NewFile file(strPersistent);
    {
        Connection target(file.Path(), Connection::Access::ReadWrite);
        target.Run(NEW_SETTINGS, "set up a new copy");
        CopyDatabase(working, target);
    }
    file.Put(true);
}

void SetAsideAndNote(const std::string& strPath, const std::string& strWhy, std::vector<std::string>& vecNotes) {
    std::string strNew;
    try {
        strNew = SetAside(strPath);
    } catch (const StateError& error) {
        throw StateError(Escaped(strPath) + " " + strWhy + "; " + error.what());
    }
    vecNotes.push_back(Escaped(strPath) + " " + strWhy + ": set aside as " + Escaped(strNew));
}

} // namespace VUKO::VUKOCrond::Service
