#include "service/state/sqlite.h"

#include <cstring>
#include <filesystem>
#include <system_error>

#include "service/logtext.h"

namespace VUKO::VUKOCrond::Service {

namespace {

/// SQLite takes a link anywhere in a path for one that is not to be followed, and /var/run is one on most systems: here
/// only the file itself must not be one.
std::string WithRealFolder(const std::string& strPath) {
    namespace fs = std::filesystem;
    std::error_code error;
    const fs::path pathFolder = fs::canonical(fs::absolute(strPath, error).parent_path(), error);
    return error ? strPath : (pathFolder / fs::path(strPath).filename()).string();
}

/// The path as a URI, in which some characters mean something else.
std::string ToUri(const std::string& strPath) {
    constexpr const char* szDigits = "0123456789abcdef";
    std::string strUri = "file:";
    for (const char c : strPath) {
        if (std::strchr("%?#", c) != nullptr) {
            const auto uByte = static_cast<unsigned char>(c);
            strUri += {'%', szDigits[uByte >> 4], szDigits[uByte & 0xf]};
        } else {
            strUri += c;
        }
    }
    return strUri + "?immutable=1";
}

} // namespace

bool SqliteError::IsDamage() const {
    switch (_iCode & 0xff) {
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
    case SQLITE_FORMAT:
    case SQLITE_SCHEMA:
    case SQLITE_ERROR: // as of a file format that this SQLite does not know
    case SQLITE_TOOBIG:
    case SQLITE_MISMATCH:
        return true;
    case SQLITE_IOERR:
        return _iCode == SQLITE_IOERR_READ || _iCode == SQLITE_IOERR_SHORT_READ || _iCode == SQLITE_IOERR_CORRUPTFS;
    default:
        return false;
    }
}

Connection::Connection(std::string strPath, Access eAccess) : _strPath(std::move(strPath)) {
    // One thread: the library's own locks would be for nothing.
    constexpr int FLAGS = SQLITE_OPEN_NOFOLLOW | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE;
    const bool bUnchanging = eAccess == Access::Unchanging;
    const std::string strReal = WithRealFolder(_strPath);
    sqlite3* db = nullptr;
    const int iCode = sqlite3_open_v2(
        bUnchanging ? ToUri(strReal).c_str() : strReal.c_str(), &db,
        FLAGS | (bUnchanging ? SQLITE_OPEN_READONLY | SQLITE_OPEN_URI : SQLITE_OPEN_READWRITE), nullptr);
    _db.reset(db);
    if (iCode != SQLITE_OK) {
        Fail("open");
    }
    // Whatever a file brings along of its own is not to be run.
    sqlite3_db_config(db, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_db_config(db, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    sqlite3_db_config(db, SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr);
    sqlite3_db_config(db, SQLITE_DBCONFIG_ENABLE_VIEW, 0, nullptr);
}

void Connection::Run(const char* szSql, const char* szWhat) {
    if (sqlite3_exec(_db.get(), szSql, nullptr, nullptr, nullptr) != SQLITE_OK) {
        Fail(szWhat);
    }
}

void Connection::Fail(const char* szWhat) const {
    const int iCode = _db ? sqlite3_extended_errcode(_db.get()) : SQLITE_NOMEM;
    std::string strText = std::string("cannot ") + szWhat + ": ";
    strText += _db ? Escaped(sqlite3_errmsg(_db.get())) : sqlite3_errstr(iCode);
    const int iPrimary = iCode & 0xff;
    const int iErrno = _db ? sqlite3_system_errno(_db.get()) : 0;
    if ((iPrimary == SQLITE_IOERR || iPrimary == SQLITE_CANTOPEN) && iErrno != 0) {
        strText += std::string(" (") + strerror(iErrno) + ")";
    }
    throw SqliteError(iCode, Escaped(_strPath), strText);
}

Statement::Statement(const Connection& connection, const std::string& strSql, const char* szWhat)
    : _connection(connection), _szWhat(szWhat) {
    sqlite3_stmt* stmt = nullptr;
    if (sqlite3_prepare_v3(connection.Get(), strSql.c_str(), -1, SQLITE_PREPARE_PERSISTENT, &stmt, nullptr) !=
        SQLITE_OK) {
        connection.Fail(szWhat);
    }
    _stmt.reset(stmt);
}

Query::~Query() {
    sqlite3_reset(_statement._stmt.get());
    sqlite3_clear_bindings(_statement._stmt.get());
}

bool Query::Step() {
    const int iCode = sqlite3_step(_statement._stmt.get());
    if (iCode != SQLITE_ROW && iCode != SQLITE_DONE) {
        _statement._connection.Fail(_statement._szWhat);
    }
    return iCode == SQLITE_ROW;
}

int Query::Run() {
    while (Step()) {
    }
    return sqlite3_changes(_statement._connection.Get());
}

bool Query::IsInt(int iColumn) const {
    return sqlite3_column_type(_statement._stmt.get(), iColumn) == SQLITE_INTEGER;
}

bool Query::IsText(int iColumn) const {
    return sqlite3_column_type(_statement._stmt.get(), iColumn) == SQLITE_TEXT;
}

std::int64_t Query::Int(int iColumn) const {
    return sqlite3_column_int64(_statement._stmt.get(), iColumn);
}

int Query::TextSize(int iColumn) const {
    return sqlite3_column_bytes(_statement._stmt.get(), iColumn);
}

std::string Query::Text(int iColumn) const {
    const unsigned char* const szText = sqlite3_column_text(_statement._stmt.get(), iColumn);
    if (szText == nullptr) {
        return std::string();
    }
    return std::string(reinterpret_cast<const char*>(szText), static_cast<std::size_t>(TextSize(iColumn)));
}

void Query::BindNext(std::int64_t iValue) {
    Check(sqlite3_bind_int64(_statement._stmt.get(), ++_iBound, iValue));
}

void Query::BindNext(const std::string& strValue) {
    Check(sqlite3_bind_text64(_statement._stmt.get(), ++_iBound, strValue.data(), strValue.size(), SQLITE_TRANSIENT,
                              SQLITE_UTF8));
}

void Query::Check(int iCode) const {
    if (iCode != SQLITE_OK) {
        _statement._connection.Fail(_statement._szWhat);
    }
}

} // namespace VUKO::VUKOCrond::Service
