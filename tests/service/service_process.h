#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "tests/support/temp_dir.h"

namespace service_test {

/// The service's program as a child of the test, with a root folder of its own. Killed and reaped at the end, whatever
/// the test did.
class ServiceProcess {
public:
    /// @param mapEnvironment  set over the test's own environment.
    explicit ServiceProcess(const std::string& strRoot, std::vector<std::string> vecArguments = {},
                            const std::map<std::string, std::string>& mapEnvironment = {});
    ~ServiceProcess();
    ServiceProcess(const ServiceProcess&) = delete;
    ServiceProcess& operator=(const ServiceProcess&) = delete;

    pid_t Pid() const { return _pid; }
    void Signal(int iSignal) const;
    /// Waits for its end. @return its exit status, or 128 + the signal that ended it, or -1 when it runs on.
    int WaitForEnd();

    std::string Output() const { return support::ReadFile(_dir / "out"); }
    std::string Messages() const { return support::ReadFile(_dir / "err"); }
    /// Waits until its messages hold a text so many times.
    bool AwaitMessage(const std::string& strText, int iTimes = 1) const;

private:
    support::TempDir _dir;
    pid_t _pid = -1;
};

/// Looks again and again until the condition holds or a long time has passed.
bool Await(const std::function<bool()>& condition, std::chrono::seconds timeout = std::chrono::seconds(60));

} // namespace service_test
