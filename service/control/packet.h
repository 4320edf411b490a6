#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>

namespace VUKO::VUKOCrond::Service {

/// Who is at the other end, as the kernel tells: as whom it connected.
struct Peer {
    uid_t uid = 0;
    gid_t gid = 0;
    pid_t pid = 0;
    /// Root, and the service's own account where that is another: it may end the service and change all that it reads.
    bool MayDoAll() const;
};

/// @throws std::system_error
Peer PeerOf(int iFd);

/// Makes room for one whole packet of that size.
void MakeRoom(int iFd, std::size_t uBytes);

/// @return whether the packet has been taken, whole; a peer that leaves no room for it is not waited for.
bool SendPacket(int iFd, const std::string& strText);

/// Takes one packet that waits to be read, if there is one, and forgets it.
void DropPacket(int iFd);

} // namespace VUKO::VUKOCrond::Service
