#pragma once

#include <sys/types.h>

namespace VUKO::VUKOCrond::Ctl {

struct Common;

/// Lets what is printed to standard output go through a pager while it lives: that of VUKOCRONCTL_PAGER or PAGER, else
/// less, which leaves at once where all fits on the screen. Nobody needs a pager in a script: there is none where
/// standard input or output is no terminal, with --json or --no-pager, and where the variable is empty or "cat".
///
/// Make it when there is something to print and errors lie behind: what goes to standard error is not paged. Whoever
/// leaves the pager early has seen enough, which is no error. Only one lives at a time.
///
/// The pager runs with the rights of the tool. Whoever may call the tool by sudo as another must not become that other
/// in the pager: there, no variable chooses it, and less is told to run nothing and write nothing. That holds for less
/// that somebody starts for himself, too: a list needs neither.
class Pager {
public:
    explicit Pager(const Common& common);
    ~Pager();
    Pager(const Pager&) = delete;
    Pager& operator=(const Pager&) = delete;

private:
    pid_t _pidPager = -1;
    int _iStandardOutput = -1;
};

} // namespace VUKO::VUKOCrond::Ctl
