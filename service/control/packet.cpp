#include "service/control/packet.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace VUKO::VUKOCrond::Service {

bool Peer::MayDoAll() const {
    return uid == 0 || uid == geteuid();
}

Peer PeerOf(int iFd) {
    ucred credentials = {};
    socklen_t uLength = sizeof(credentials);
    if (getsockopt(iFd, SOL_SOCKET, SO_PEERCRED, &credentials, &uLength) != 0) {
        throw std::system_error(errno, std::generic_category(), "SO_PEERCRED");
    }
    return {credentials.uid, credentials.gid, credentials.pid};
}

/// The kernel doubles the figure for what it needs beside the bytes.
void MakeRoom(int iFd, std::size_t uBytes) {
    const int iBytes = static_cast<int>(uBytes);
    if (setsockopt(iFd, SOL_SOCKET, SO_SNDBUFFORCE, &iBytes, sizeof(iBytes)) != 0) {
        setsockopt(iFd, SOL_SOCKET, SO_SNDBUF, &iBytes, sizeof(iBytes)); // up to the system's limit, for want of rights
    }
}

bool SendPacket(int iFd, const std::string& strText) {
    return send(iFd, strText.data(), strText.size(), MSG_DONTWAIT | MSG_NOSIGNAL) ==
           static_cast<ssize_t>(strText.size());
}

void DropPacket(int iFd) {
    char c = 0;
    recv(iFd, &c, sizeof(c), MSG_DONTWAIT); // the rest of it goes with its first byte
}

} // namespace VUKO::VUKOCrond::Service
