#include "tests/service/service_process.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <thread>

#include "tests/support/forked.h"

namespace service_test {

namespace {

constexpr int STATUS_NOT_STARTED = 126;

void Redirect(const std::string& strPath, int iTarget) {
    const int iFd = open(strPath.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (iFd == -1 || dup2(iFd, iTarget) == -1) {
        _exit(STATUS_NOT_STARTED);
    }
}

int EndOf(int iStatus) {
    return WIFEXITED(iStatus) ? WEXITSTATUS(iStatus) : 128 + WTERMSIG(iStatus);
}

} // namespace

ServiceProcess::ServiceProcess(const std::string& strRoot, std::vector<std::string> vecArguments,
                               const std::map<std::string, std::string>& mapEnvironment) {
    vecArguments.insert(vecArguments.begin(), {"vukocrond", "--root", strRoot});
    std::vector<char*> vecRaw;
    for (std::string& strArgument : vecArguments) {
        vecRaw.push_back(strArgument.data());
    }
    vecRaw.push_back(nullptr);
    _pid = fork();
    if (_pid == -1) {
        throw std::runtime_error("fork");
    }
    if (_pid == 0) {
        for (const auto& [strName, strValue] : mapEnvironment) {
            setenv(strName.c_str(), strValue.c_str(), 1);
        }
        Redirect(_dir / "out", STDOUT_FILENO);
        Redirect(_dir / "err", STDERR_FILENO);
        close_range(STDERR_FILENO + 1, ~0U, 0); // what the test itself was given is not the service's
        execv(VUKO_SERVICE_PROGRAM, vecRaw.data());
        _exit(STATUS_NOT_STARTED);
    }
}

ServiceProcess::~ServiceProcess() {
    if (_pid != -1) {
        kill(_pid, SIGKILL);
        support::WaitFor(_pid);
    }
}

void ServiceProcess::Signal(int iSignal) const {
    kill(_pid, iSignal);
}

int ServiceProcess::WaitForEnd() {
    int iStatus = 0;
    if (!Await([this, &iStatus] { return waitpid(_pid, &iStatus, WNOHANG) == _pid; })) {
        return -1;
    }
    _pid = -1;
    return EndOf(iStatus);
}

bool ServiceProcess::AwaitMessage(const std::string& strText, int iTimes) const {
    return Await([this, &strText, iTimes] {
        const std::string strMessages = Messages();
        int iFound = 0;
        for (std::size_t u = strMessages.find(strText); u != std::string::npos; u = strMessages.find(strText, u + 1)) {
            ++iFound;
        }
        return iFound >= iTimes;
    });
}

bool Await(const std::function<bool()>& condition, std::chrono::seconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

} // namespace service_test
