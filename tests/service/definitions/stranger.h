#pragma once

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <new>
#include <stdexcept>
#include <string>

#include "service/uniquefd.h"
#include "tests/support/forked.h"

namespace service_test {

/// An account that nobody has set up: no name, no rights.
constexpr uid_t STRANGER = 54321;

/// By the kernel's own calls: tests replace those of the C library.
inline void BecomeStranger() {
    if (syscall(SYS_setgroups, 0, nullptr) != 0 || syscall(SYS_setgid, STRANGER) != 0 ||
        syscall(SYS_setuid, STRANGER) != 0 || geteuid() == 0) {
        throw std::runtime_error("cannot become the stranger");
    }
}

/// Does something as the stranger, in a process of its own. The body says whether it got what it wanted.
inline bool StrangerCan(const std::function<bool()>& body) {
    const support::ChildEnd end = support::RunForked([&body](int) {
        BecomeStranger();
        return body() ? 0 : 1;
    });
    EXPECT_TRUE(end.iExitStatus == 0 || end.iExitStatus == 1) << end.strOutput;
    return end.iExitStatus == 0;
}

/// The stranger doing one thing over and over, for as long as this object lives.
class BusyStranger {
public:
    explicit BusyStranger(const std::function<void()>& body) : _pRounds(NewCounter()), _pid(fork()) {
        if (_pid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            try {
                BecomeStranger();
                for (;;) {
                    body();
                    ++*_pRounds;
                }
            } catch (...) {
                _exit(1);
            }
        }
        EXPECT_GT(_pid, 0);
    }
    ~BusyStranger() {
        EXPECT_EQ(waitpid(_pid, nullptr, WNOHANG), 0) << "it gave up before its time";
        kill(_pid, SIGKILL);
        support::WaitFor(_pid);
        munmap(_pRounds, sizeof(*_pRounds));
    }

    /// How often it has done it by now. Gives way, so that its turn comes where there is one processor for both.
    int Rounds() const {
        sched_yield();
        return *_pRounds;
    }

    BusyStranger(const BusyStranger&) = delete;
    BusyStranger& operator=(const BusyStranger&) = delete;

private:
    using Counter = std::atomic<int>;

    static Counter* NewCounter() {
        void* const pShared = mmap(nullptr, sizeof(Counter), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (pShared == MAP_FAILED) {
            throw std::runtime_error("mmap");
        }
        return new (pShared) Counter(0);
    }

    Counter* _pRounds;
    pid_t _pid;
};

/// Makes or replaces a file with plain calls, as an attacker's loop does. @return whether that went well.
inline bool PutFile(const std::string& strPath, const std::string& strText) {
    const VUKO::VUKOCrond::Service::UniqueFd fd(
        open(strPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0644));
    return fd && write(fd.Get(), strText.data(), strText.size()) == static_cast<ssize_t>(strText.size());
}

} // namespace service_test
