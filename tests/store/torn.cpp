#include "tests/store/torn.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <map>
#include <set>
#include <vector>

#include "tests/support/captured_syslog.h"
#include "tests/support/shared_record.h"
#include "tests/support/syscall_killer.h"
#include "tests/unit/definitions.h"

namespace store {

namespace {

namespace fs = std::filesystem;

constexpr mode_t OLD_MODE = 0640;
constexpr uid_t OLD_OWNER = 12345;
constexpr gid_t OLD_GROUP = 54321;

/// Large enough not to fit in any buffer on the way.
Json::Value LargeDefinition(char cFill) {
    Json::Value jsDefinition = unit::Definition();
    for (int i = 0; i < 40; ++i) {
        jsDefinition["note"].append(std::string(400, cFill));
    }
    return jsDefinition;
}

const Json::Value& Old() {
    static const Json::Value jsOld = LargeDefinition('o');
    return jsOld;
}

const Json::Value& New() {
    static const Json::Value jsNew = LargeDefinition('n');
    return jsNew;
}

std::vector<std::string> EntriesBeside(const std::string& strFile) {
    std::vector<std::string> vecNames;
    for (const fs::directory_entry& entry : fs::directory_iterator(fs::path(strFile).parent_path())) {
        if (entry.path() != strFile) {
            vecNames.push_back(entry.path().filename().string());
        }
    }
    return vecNames;
}

enum class Content { Missing, Old, New, Torn };

/// The stage on which each attempt is made: one file, in the state before the writing.
class Stage {
public:
    Stage(const Writing& writing, bool bReplace) : _writing(writing), _bReplace(bReplace) {
        _strNewText = TextOf(New());
        _strOldText = TextOf(Old());
    }

    void Reset() const {
        for (const fs::directory_entry& entry : fs::directory_iterator(fs::path(_writing.strFile).parent_path())) {
            fs::remove(entry.path());
        }
        if (_bReplace) {
            support::WriteFile(_writing.strFile, _strOldText);
            if (geteuid() == 0) {
                ASSERT_EQ(chown(_writing.strFile.c_str(), OLD_OWNER, OLD_GROUP), 0);
            }
            ASSERT_EQ(chmod(_writing.strFile.c_str(), OLD_MODE), 0);
        }
    }

    /// What is there now, and whether it is what it should be.
    Content Look() const {
        if (!support::Exists(_writing.strFile)) {
            EXPECT_FALSE(_bReplace);
            return Content::Missing;
        }
        Json::Value jsRead;
        const std::string strText = support::ReadFile(_writing.strFile);
        const Content eContent = strText == _strOldText   ? Content::Old
                                 : strText == _strNewText ? Content::New
                                                          : Content::Torn;
        EXPECT_NE(eContent, Content::Torn) << strText.size() << " bytes";
        EXPECT_TRUE(_writing.read(jsRead));
        EXPECT_EQ(jsRead, eContent == Content::Old ? Old() : New());
        LookAtIdentity();
        return eContent;
    }

private:
    std::string TextOf(const Json::Value& jsDocument) const {
        support::CapturedSyslog log;
        EXPECT_TRUE(_writing.write(jsDocument));
        log.Take(); // of a service that cannot be reloaded
        return support::ReadFile(_writing.strFile);
    }

    void LookAtIdentity() const {
        struct stat stFile = {};
        ASSERT_EQ(::stat(_writing.strFile.c_str(), &stFile), 0);
        EXPECT_EQ(stFile.st_mode & 07777, _bReplace ? OLD_MODE : 0600U);
        if (geteuid() == 0) {
            EXPECT_EQ(stFile.st_uid, _bReplace ? OLD_OWNER : 0U);
            EXPECT_EQ(stFile.st_gid, _bReplace ? OLD_GROUP : 0U);
        }
    }

    const Writing& _writing;
    const bool _bReplace;
    std::string _strOldText;
    std::string _strNewText;
};

/// The calls by which a program has to do with files, their content, names and attributes.
bool IsFileCall(long lNumber) {
    static const std::set<long> setCalls = {
        SYS_open,       SYS_openat,    SYS_openat2,   SYS_creat,      SYS_close,
        SYS_read,       SYS_pread64,   SYS_readv,     SYS_write,      SYS_pwrite64,
        SYS_writev,     SYS_lseek,     SYS_stat,      SYS_fstat,      SYS_lstat,
        SYS_newfstatat, SYS_statx,     SYS_access,    SYS_faccessat,  SYS_faccessat2,
        SYS_fsync,      SYS_fdatasync, SYS_syncfs,    SYS_fcntl,      SYS_flock,
        SYS_ftruncate,  SYS_truncate,  SYS_fallocate, SYS_rename,     SYS_renameat,
        SYS_renameat2,  SYS_link,      SYS_linkat,    SYS_unlink,     SYS_unlinkat,
        SYS_symlink,    SYS_symlinkat, SYS_readlink,  SYS_readlinkat, SYS_mkdir,
        SYS_mkdirat,    SYS_rmdir,     SYS_chmod,     SYS_fchmod,     SYS_fchmodat,
        SYS_chown,      SYS_fchown,    SYS_lchown,    SYS_fchownat,   SYS_getdents64,
        SYS_utimensat,  SYS_ioctl,     SYS_dup,       SYS_sendfile,   SYS_copy_file_range,
        SYS_fgetxattr,  SYS_fsetxattr, SYS_getxattr,  SYS_setxattr,   SYS_umask};
    return setCalls.count(lNumber) != 0;
}

bool IsRename(long lNumber) {
    return lNumber == SYS_rename || lNumber == SYS_renameat || lNumber == SYS_renameat2;
}

bool IsSync(long lNumber) {
    return lNumber == SYS_fsync || lNumber == SYS_fdatasync;
}

/// What the child found out: its result first, its messages behind it.
support::SharedRecord& Told() {
    static support::SharedRecord record;
    return record;
}

support::TracedBody Body(const Writing& writing) {
    Told().Clear();
    return [&writing] {
        support::CapturedSyslog log;
        errno = 0;
        Told().Append(writing.write(New()) ? "true" : "false");
        for (const std::string& strMessage : log.Take()) {
            Told().Append(strMessage);
        }
    };
}

bool IsReloadMessage(const std::string& strMessage) {
    return strMessage.rfind("<3>configmanager:52 failed to reload service vukocrond. [0x", 0) == 0;
}

/// A call that failed ended in the store's own message with the reason, or in success; a reload that could not be asked
/// for is told, too.
void ExpectToldSo(const Writing& writing, bool bSuccess, int iErrno) {
    std::vector<std::string> vecTold = Told().Texts();
    ASSERT_FALSE(vecTold.empty());
    vecTold.erase(vecTold.begin());
    std::vector<std::string> vecExpected;
    if (bSuccess) {
        vecTold.erase(std::remove_if(vecTold.begin(), vecTold.end(), IsReloadMessage), vecTold.end());
    } else if (!writing.strSaveError.empty()) {
        vecExpected.push_back(writing.strSaveError + " (" + std::strerror(iErrno) + ")");
    }
    EXPECT_EQ(vecTold, vecExpected);
}

} // namespace

void ExpectWholeWhereverItIsKilled(const Writing& writing, bool bReplace) {
    const Stage stage(writing, bReplace);
    std::map<Content, int> mapSeen;
    int iLeftovers = 0;
    for (int iStop = 1;; ++iStop) {
        SCOPED_TRACE("killed at stop " + std::to_string(iStop));
        stage.Reset();
        if (!support::KillAtStop(Body(writing), iStop)) {
            break;
        }
        ++mapSeen[stage.Look()];
        for (const std::string& strName : EntriesBeside(writing.strFile)) {
            EXPECT_EQ(strName.front(), '.') << strName;
            EXPECT_FALSE(strName.ends_with(".conf")) << strName;
            ++iLeftovers;
        }
        if (testing::Test::HasFailure()) {
            break;
        }
    }
    std::cout << "killed with the old file: " << mapSeen[Content::Old] << ", without any: " << mapSeen[Content::Missing]
              << ", with the new file: " << mapSeen[Content::New] << ", times a hidden file was left: " << iLeftovers
              << "\n";
    EXPECT_GT(mapSeen[bReplace ? Content::Old : Content::Missing], 0);
    EXPECT_GT(mapSeen[Content::New], 0);
    EXPECT_GT(iLeftovers, 0) << "the writer was never killed in the middle";
    EXPECT_EQ(stage.Look(), Content::New) << "undisturbed, the writing writes";
}

void ExpectWholeWhateverFails(const Writing& writing, int iErrno) {
    const Stage stage(writing, true);
    std::map<bool, int> mapSuccess;
    std::map<bool, int> mapBehindRename;
    for (int iCall = 1;; ++iCall) {
        SCOPED_TRACE("file call " + std::to_string(iCall) + ": " + std::strerror(iErrno));
        stage.Reset();
        const auto failed = support::FailCall(Body(writing), iCall, iErrno, IsFileCall);
        if (!failed) {
            break;
        }
        SCOPED_TRACE("system call number " + std::to_string(failed->lNumber));
        const bool bSuccess = Told().Texts().at(0) == "true";
        const bool bBehindRename = std::any_of(failed->vecBefore.begin(), failed->vecBefore.end(), IsRename);
        EXPECT_EQ(stage.Look(), bSuccess || bBehindRename ? Content::New : Content::Old);
        EXPECT_EQ(EntriesBeside(writing.strFile), std::vector<std::string>());
        ExpectToldSo(writing, bSuccess, iErrno);
        ++mapSuccess[bSuccess];
        mapBehindRename[bBehindRename] += bSuccess ? 0 : 1;
        if (testing::Test::HasFailure()) {
            break;
        }
    }
    std::cout << std::strerror(iErrno) << ": failed " << mapSuccess[false] << " times (behind the rename "
              << mapBehindRename[true] << "), succeeded " << mapSuccess[true] << " times\n";
    EXPECT_GT(mapSuccess[false], 0);
    EXPECT_GT(mapSuccess[true], 0);
}

void ExpectSyncedInOrder(const Writing& writing, bool bDurable) {
    const Stage stage(writing, true);
    stage.Reset();
    const std::vector<long> vecCalls = support::SystemCallsOf(Body(writing));
    const auto itRename = std::find_if(vecCalls.begin(), vecCalls.end(), IsRename);
    ASSERT_NE(itRename, vecCalls.end());
    EXPECT_EQ(std::count_if(vecCalls.begin(), vecCalls.end(), IsRename), 1);
    const auto itLastWrite = std::find(std::make_reverse_iterator(itRename), vecCalls.rend(), SYS_write);
    ASSERT_NE(itLastWrite, vecCalls.rend());
    EXPECT_EQ(std::count_if(itLastWrite.base(), itRename, IsSync), 1);
    EXPECT_EQ(std::count_if(itRename, vecCalls.end(), IsSync), bDurable ? 1 : 0);
}

} // namespace store
