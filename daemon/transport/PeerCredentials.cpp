// SPDX-License-Identifier: Apache-2.0
#include "daemon/transport/PeerCredentials.h"

#include <sys/socket.h>
#include <sys/types.h>
#include <unistd.h>

namespace meridal {

#ifdef __linux__

Peer readPeerCredentials(int descriptor)
{
    ucred credentials{};
    socklen_t size = sizeof(credentials);
    if (getsockopt(descriptor, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0 || size != sizeof(credentials)) {
        return {};
    }
    Peer peer{.uid = credentials.uid, .gid = credentials.gid, .known = true};
    socklen_t bytes = 0; // the first call tells how many there are
    static_cast<void>(getsockopt(descriptor, SOL_SOCKET, SO_PEERGROUPS, nullptr, &bytes));
    peer.groups.resize(bytes / sizeof(gid_t));
    if (bytes != 0 && getsockopt(descriptor, SOL_SOCKET, SO_PEERGROUPS, peer.groups.data(), &bytes) != 0) {
        peer.groups.clear();
    }
    return peer;
}

#else

Peer readPeerCredentials(int descriptor)
{
    uid_t uid = 0;
    gid_t gid = 0;
    if (getpeereid(descriptor, &uid, &gid) != 0) {
        return {};
    }
    return {.uid = uid, .gid = gid, .known = true};
}

#endif

} // namespace meridal
