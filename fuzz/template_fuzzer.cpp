/// A template file.

#include <unistd.h>

#include <cstdlib>

#include "fuzz/invariants.h"
#include "platform/vukojson.h"

using VUKO::VUKOCrond::ScheduleTemplate;

namespace {

/// One file in memory for the whole run, removed by name right away and reached through its descriptor.
class InputFile {
public:
    InputFile() {
        char aName[] = "/dev/shm/vuko-fuzz-XXXXXX";
        _iFd = mkstemp(aName);
        fuzz::Require(_iFd >= 0, "a file in /dev/shm can be made");
        _strPath = aName;
    }
    ~InputFile() {
        close(_iFd);
        unlink(_strPath.c_str());
    }
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    const std::string& Write(const std::uint8_t* pData, std::size_t uSize) const {
        fuzz::Require(ftruncate(_iFd, 0) == 0 && pwrite(_iFd, pData, uSize, 0) == static_cast<ssize_t>(uSize),
                      "the input can be written");
        return _strPath;
    }

private:
    int _iFd = -1;
    std::string _strPath;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t uSize) {
    static const InputFile input;
    static const ScheduleTemplate fresh;
    const std::string& strPath = input.Write(pData, uSize);
    ScheduleTemplate loaded(fresh);
    if (!loaded.fromFile(strPath)) {
        fuzz::Require(loaded._jsJob == fresh._jsJob && loaded._iMaxDelay == fresh._iMaxDelay,
                      "a failed load changes nothing");
        return 0;
    }
    fuzz::Require(loaded._bValid && loaded._iMaxDelay >= 0, "a loaded template is valid");
    const std::string strCopy = strPath + ".copy";
    fuzz::Require(loaded.toFile(strCopy), "a loaded template can be written");
    ScheduleTemplate again(fresh);
    const bool bRead = again.fromFile(strCopy);
    unlink(strCopy.c_str());
    fuzz::Require(bRead, "a written template can be read");
    fuzz::Require(again._jsJob["schedule"] == loaded._jsJob["schedule"], "a stored schedule survives");
    fuzz::Require(again._iMaxDelay == loaded._iMaxDelay, "a stored delay survives");
    fuzz::RequireJobHolds(loaded);
    return 0;
}
