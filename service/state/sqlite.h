#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <string>

#include "service/state/statestore.h"

namespace VUKO::VUKOCrond::Service {

/// What SQLite said about a file.
class SqliteError : public StateError {
public:
    SqliteError(int iCode, const std::string& strFile, const std::string& strReason)
        : StateError(strFile + ": " + strReason), _iCode(iCode), _strReason(strReason) {}

    /// Whether the content is at fault: what is written there cannot be what was once written there. All else (no
    /// space, no memory, somebody else's lock) may be better at the next attempt.
    bool IsDamage() const;
    /// The surest kind of damage, that SQLite itself found in the pages.
    bool IsCorruption() const { return (_iCode & 0xff) == SQLITE_CORRUPT || (_iCode & 0xff) == SQLITE_NOTADB; }
    /// what() without the file.
    const std::string& Reason() const { return _strReason; }

private:
    int _iCode; ///< extended
    std::string _strReason;
};

/// One opened database. Errors become SqliteError with the file, what was to be done, and the reason.
class Connection {
public:
    /// Opens a file for reading and writing, or for reading only a file that nobody changes: its journals are not
    /// looked at, and it is not locked. In both cases the file must be there, and not be reached through a link.
    enum class Access { ReadWrite, Unchanging };

    Connection(std::string strPath, Access eAccess);

    sqlite3* Get() const { return _db.get(); }
    const std::string& Path() const { return _strPath; }

    /// Runs statements that have no result.
    /// @param szWhat  completes "cannot ...".
    void Run(const char* szSql, const char* szWhat);
    bool IsInTransaction() const { return sqlite3_get_autocommit(_db.get()) == 0; }
    [[noreturn]] void Fail(const char* szWhat) const;

private:
    struct Closer {
        void operator()(sqlite3* db) const { sqlite3_close(db); }
    };

    std::string _strPath;
    std::unique_ptr<sqlite3, Closer> _db;
};

/// A prepared statement.
class Statement {
public:
    /// @param szWhat  completes "cannot ..." in its errors; must stay.
    Statement(const Connection& connection, const std::string& strSql, const char* szWhat);

private:
    friend class Query;
    struct Finalizer {
        void operator()(sqlite3_stmt* stmt) const { sqlite3_finalize(stmt); }
    };

    const Connection& _connection;
    const char* _szWhat;
    std::unique_ptr<sqlite3_stmt, Finalizer> _stmt;
};

/// One use of a statement; it is reset and its values are forgotten at the end.
class Query {
public:
    template <typename... Values>
    explicit Query(Statement& statement, const Values&... values) : _statement(statement) {
        (BindNext(values), ...);
    }
    ~Query();
    Query(const Query&) = delete;
    Query& operator=(const Query&) = delete;

    /// @return whether there is a row.
    bool Step();
    /// @return the number of rows that were changed.
    int Run();

    /// Of the present row. A value of another kind is not turned into the one asked for.
    bool IsInt(int iColumn) const;
    bool IsText(int iColumn) const;
    std::int64_t Int(int iColumn) const;
    int TextSize(int iColumn) const;
    std::string Text(int iColumn) const;

private:
    void BindNext(std::int64_t iValue);
    void BindNext(const std::string& strValue);
    void Check(int iCode) const;

    Statement& _statement;
    int _iBound = 0;
};

} // namespace VUKO::VUKOCrond::Service
