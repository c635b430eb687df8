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
    return {.uid = credentials.uid, .gid = credentials.gid, .known = true};
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
