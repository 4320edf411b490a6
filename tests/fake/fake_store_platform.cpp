#include "tests/fake/fake_store_platform.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <vector>

#include "platform/vlibc.h"
#include "platform/vukojson.h"
#include "platform/vukosdk.h"
#include "platform/vukosystemd.h"
#include "platform/vukoutils.h"
#include "tests/fake/call_record.h"

namespace fake {

namespace {

bool g_bActive = false;

} // namespace

StorePlatformState& StorePlatform() {
    static StorePlatformState state;
    return state;
}

ScopedStorePlatform::ScopedStorePlatform() {
    StorePlatform() = StorePlatformState();
    ClearCalls();
    g_bActive = true;
}

ScopedStorePlatform::~ScopedStorePlatform() {
    g_bActive = false;
    StorePlatform() = StorePlatformState();
    ClearCalls();
}

namespace {

/// Notes a call and tells whether it is to fail, with errno set as the test wants it.
bool NoteAndFail(const std::string& strCall, const std::string& strArguments = "") {
    RecordCall(strArguments.empty() ? strCall : strCall + " " + strArguments);
    const auto it = StorePlatform().mapFailing.find(strCall);
    if (it == StorePlatform().mapFailing.end()) {
        return false;
    }
    if (it->second != 0) {
        errno = it->second;
    }
    return true;
}

std::string Octal(mode_t mode) {
    char szText[16] = {};
    std::snprintf(szText, sizeof(szText), "%04o", mode);
    return szText;
}

/// The file at a path; without one errno says so.
StoredFile* Find(const std::string& strPath) {
    const auto it = StorePlatform().mapFiles.find(strPath);
    if (it == StorePlatform().mapFiles.end()) {
        errno = ENOENT;
        return nullptr;
    }
    return &it->second;
}

StoredFile* NoteAndFind(const std::string& strCall, const std::string& strPath, const std::string& strMore = "") {
    return NoteAndFail(strCall, strPath + strMore) ? nullptr : Find(strPath);
}

int Real(long lResult) {
    return static_cast<int>(lResult);
}

} // namespace

} // namespace fake

using fake::NoteAndFail;
using fake::NoteAndFind;
using fake::StorePlatform;

extern "C" {

int VLIBCFileExist(const char* szPath) {
    NoteAndFail("exist", szPath);
    return StorePlatform().iFileExistResult.value_or(StorePlatform().mapFiles.count(szPath) != 0 ? 1 : 0);
}

int VLIBCFileCheckDir(const char* szPath) {
    NoteAndFail("isdir", szPath);
    return StorePlatform().setFolders.count(szPath) != 0 ? 7 : 0;
}

int VLIBCExec(const char* szProgram, ...) {
    std::vector<std::string> vecArguments;
    va_list args;
    va_start(args, szProgram);
    for (const char* szArgument = va_arg(args, const char*); szArgument != nullptr;
         szArgument = va_arg(args, const char*)) {
        vecArguments.emplace_back(szArgument);
    }
    va_end(args);
    std::string strCall = szProgram;
    for (const std::string& strArgument : vecArguments) {
        strCall += " [" + strArgument + "]";
    }
    if (NoteAndFail("exec", strCall)) {
        return StorePlatform().iExecFailure;
    }
    StorePlatform().mapFiles[vecArguments.at(2)] = StorePlatform().mapFiles[vecArguments.at(1)];
    return 0;
}

unsigned VLIBCErrGet(void) {
    errno = EDOM; // nobody promises that asking for the last error leaves this one alone
    return StorePlatform().uErrCode;
}

const char* VLIBCErrorGetFile(void) {
    errno = EDOM;
    return StorePlatform().strErrFile.c_str();
}

int VLIBCErrorGetLine(void) {
    errno = EDOM;
    return StorePlatform().iErrLine;
}

int VUKOFSMkdirP(const char* szPath, int iFirst, int iSecond, uid_t uid, gid_t gid, mode_t mode) {
    if (NoteAndFail("mkdirp", std::string(szPath) + "," + std::to_string(iFirst) + "," + std::to_string(iSecond) + "," +
                                  std::to_string(uid) + "," + std::to_string(gid) + "," + fake::Octal(mode))) {
        return -1;
    }
    StorePlatform().setFolders.insert(szPath);
    return 0;
}

int VUKOSystemGetBootStep(void) {
    NoteAndFail("bootstep");
    return StorePlatform().iBootStep;
}

int VUKOEvmgrStatusGet(int iWhat, int* pStatus) {
    NoteAndFail("status", std::to_string(iWhat) + " preset=" + std::to_string(*pStatus));
    *pStatus = StorePlatform().iStatusWritten.value_or(*pStatus);
    return StorePlatform().iStatusResult;
}

uid_t geteuid(void) noexcept {
    if (!fake::g_bActive) {
        return static_cast<uid_t>(syscall(SYS_geteuid));
    }
    NoteAndFail("geteuid");
    return StorePlatform().uidEffective;
}

int unlink(const char* szPath) noexcept {
    if (!fake::g_bActive) {
        return fake::Real(syscall(SYS_unlink, szPath));
    }
    if (NoteAndFind("unlink", szPath) == nullptr) {
        return -1;
    }
    StorePlatform().mapFiles.erase(szPath);
    return 0;
}

int stat(const char* szPath, struct stat* pStat) noexcept {
    if (!fake::g_bActive) {
        return fstatat(AT_FDCWD, szPath, pStat, 0);
    }
    const fake::StoredFile* const pFile = NoteAndFind("stat", szPath);
    if (pFile == nullptr) {
        return -1;
    }
    *pStat = {};
    pStat->st_uid = pFile->uid;
    pStat->st_gid = pFile->gid;
    pStat->st_mode = S_IFREG | pFile->mode;
    return 0;
}

int chown(const char* szPath, uid_t uid, gid_t gid) noexcept {
    if (!fake::g_bActive) {
        return fake::Real(syscall(SYS_chown, szPath, uid, gid));
    }
    fake::StoredFile* const pFile = NoteAndFind("chown", szPath, " " + std::to_string(uid) + " " + std::to_string(gid));
    if (pFile == nullptr) {
        return -1;
    }
    pFile->uid = uid;
    pFile->gid = gid;
    return 0;
}

int chmod(const char* szPath, mode_t mode) noexcept {
    if (!fake::g_bActive) {
        return fake::Real(syscall(SYS_chmod, szPath, mode));
    }
    fake::StoredFile* const pFile = NoteAndFind("chmod", szPath, " " + fake::Octal(mode));
    if (pFile == nullptr) {
        return -1;
    }
    pFile->mode = mode;
    return 0;
}
}

bool VUKOSystemdReload(const std::string& strService) {
    return !NoteAndFail("reload", strService);
}

namespace VUKOUtils {

void StringExplode(std::vector<std::string>& vecOut, const std::string& strText, const char* szDelimiters) {
    if (StorePlatform().mapFailing.count("explode") != 0) {
        return;
    }
    for (std::size_t uAt = strText.find_first_not_of(szDelimiters); uAt != std::string::npos;) {
        const std::size_t uEnd = strText.find_first_of(szDelimiters, uAt);
        vecOut.push_back(strText.substr(uAt, uEnd - uAt));
        uAt = strText.find_first_not_of(szDelimiters, uEnd);
    }
}

} // namespace VUKOUtils

namespace VUKO::JSON {

bool fromFile(Json::Value& jsValue, const std::string& strPath) {
    const fake::StoredFile* const pFile = NoteAndFind("fromFile", strPath);
    if (pFile == nullptr) {
        return false;
    }
    jsValue = pFile->jsContent;
    return true;
}

bool toFile(const Json::Value& jsValue, const std::string& strPath, bool bDurable) {
    if (NoteAndFail("toFile", strPath + " durable=" + (bDurable ? "1" : "0"))) {
        return false;
    }
    StorePlatform().mapFiles[strPath].jsContent = jsValue;
    return true;
}

} // namespace VUKO::JSON
