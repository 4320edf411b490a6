#include "service/templatekeeper.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <utility>

#include "service/logtext.h"

namespace VUKO::VUKOCrond::Service {

namespace {

bool IsThere(const std::string& strPath) {
    struct stat stEntry = {};
    return lstat(strPath.c_str(), &stEntry) == 0;
}

/// A template with other than one value in a field has nothing to offer for it; only an edit by hand makes one.
bool IsWhole(const ScheduleTemplate& candidate) {
    for (const std::string& strType : CronJob::GetAllScheduleTypes()) {
        if (candidate.GetGeneratedSchedule(strType) == -1) {
            return false;
        }
    }
    return true;
}

} // namespace

TemplateKeeper::TemplateKeeper(std::string strPath, std::string strMirrorPath, bool bMayWriteDisk)
    : _strPath(std::move(strPath)), _strMirrorPath(std::move(strMirrorPath)) {
    bool bFound = false;
    for (const std::string* const pstrPath : {&_strPath, &_strMirrorPath}) {
        errno = 0;
        if (ScheduleTemplate candidate; !bFound && candidate.fromFile(*pstrPath) && IsWhole(candidate)) {
            _template = std::move(candidate);
            bFound = true;
        } else if (!bFound && IsThere(*pstrPath)) {
            SetAside(*pstrPath);
        }
    }
    _bUnsaved = !bFound || !IsThere(_strPath);
    if (!bFound) {
        _vecNotes.push_back("no schedule template found, a new one was drawn");
    }
    if (!_template.toFile(_strMirrorPath)) {
        _vecNotes.push_back(Escaped(_strMirrorPath) + " cannot be written: " + strerror(errno));
    }
    if (bMayWriteDisk) {
        if (std::string strReason = Save(); !strReason.empty()) {
            _vecNotes.push_back(std::move(strReason));
        }
    }
}

std::vector<std::string> TemplateKeeper::TakeNotes() {
    return std::exchange(_vecNotes, {});
}

std::string TemplateKeeper::Reroll() {
    for (const std::string& strType : CronJob::GetAllScheduleTypes()) {
        _template.GenerateSchedule(strType);
    }
    return Keep();
}

std::string TemplateKeeper::SetMaxDelay(int iSeconds) {
    _template._iMaxDelay = iSeconds;
    // A stored "maxDelay" is kept with the document and would come back where the default is not written.
    _template._jsJob.removeMember("maxDelay");
    return Keep();
}

std::string TemplateKeeper::Save() {
    if (!_bUnsaved) {
        return std::string();
    }
    if (!_template.toFile(_strPath)) {
        return Escaped(_strPath) + " cannot be written: " + strerror(errno);
    }
    _bUnsaved = false;
    return std::string();
}

void TemplateKeeper::SetAside(const std::string& strPath) {
    const std::string strAside = strPath + ".damaged-" + std::to_string(time(nullptr));
    const bool bMoved = rename(strPath.c_str(), strAside.c_str()) == 0;
    _vecNotes.push_back(Escaped(strPath) + " holds no schedule template" +
                        (bMoved ? ", it was set aside as " + Escaped(strAside)
                                : std::string(" and cannot be set aside: ") + strerror(errno)));
}

std::string TemplateKeeper::Keep() {
    _bUnsaved = true;
    return _template.toFile(_strMirrorPath) ? std::string()
                                            : Escaped(_strMirrorPath) + " cannot be written: " + strerror(errno);
}

} // namespace VUKO::VUKOCrond::Service
