#pragma once

#include <sys/types.h>

#include <string>

#include "service/uniquefd.h"

namespace VUKO::VUKOCrond::Service {

/// A Unix socket of sequenced packets with a name in the file system at which everybody may connect.
class ListeningSocket {
public:
    /// What a former instance left at the path gives way, in one step: whoever connects meanwhile meets the old socket
    /// or this one. Anything else than a socket of root's or our own stays, and is an error.
    ///
    /// @throws std::system_error
    explicit ListeningSocket(std::string strPath);
    /// Takes the name away, if it still leads here.
    ~ListeningSocket();
    ListeningSocket(const ListeningSocket&) = delete;
    ListeningSocket& operator=(const ListeningSocket&) = delete;

    int Descriptor() const { return _fd.Get(); }

private:
    std::string _strPath;
    UniqueFd _fd;
    dev_t _device = 0;
    ino_t _inode = 0;
};

} // namespace VUKO::VUKOCrond::Service
