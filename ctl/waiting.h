#pragma once

#include <string>

namespace VUKO::VUKOCrond::Ctl {

/// A person's wait for something that takes its time: one line on standard error that tells how long it has been, where
/// that is a terminal which can take back what it shows, and an end by Ctrl-C that ends nothing but the waiting.
class Waiting {
public:
    /// @param strWhat  stands before the time. @param bQuiet  show nothing.
    Waiting(const std::string& strWhat, bool bQuiet);
    ~Waiting();
    Waiting(const Waiting&) = delete;
    Waiting& operator=(const Waiting&) = delete;

    /// @return true when the descriptor can be read, false when the person does not want to wait any more.
    bool UntilReadable(int iFd);

private:
    void Draw(long iSeconds);
    void Clear();

    std::string _strWhat;
    bool _bShown;
    bool _bDrawn = false;
    int _iSignalFd = -1;
};

} // namespace VUKO::VUKOCrond::Ctl
