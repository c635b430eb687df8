#include "platform/linux/traffic/DiagProcessConnections.h"

#include <netinet/in.h>

#include <unordered_map>

namespace meridal {

std::span<const ConnectionRecord> DiagProcessConnections::readConnections(std::span<const std::int32_t> pids)
{
    std::unordered_map<std::uint64_t, ConnectionRecord> byInode;
    const auto take = [&byInode](const DiagSocket& socket) {
        if (socket.inode != 0) {
            ConnectionRecord& record = byInode[socket.inode];
            record.localPort = socket.flow.localPort;
            record.foreignPort = socket.flow.foreignPort;
            if (socket.counts) {
                record.bytesReceived = socket.counts->received;
                record.bytesSent = socket.counts->sent;
            }
        }
    };
    for (const bool isIPv6 : {false, true}) {
        diag_.dump(IPPROTO_TCP, isIPv6, SocketDiag::Counts::Yes, take);
        diag_.dump(IPPROTO_UDP, isIPv6, SocketDiag::Counts::No, take);
    }
    rows_.clear();
    for (const std::int32_t pid : pids) {
        sockets_.forEachDescriptor(pid, [&](int fd) {
            const auto socket = byInode.find(sockets_.inodeOf(pid, fd));
            if (socket != byInode.end()) {
                rows_.push_back(socket->second);
                rows_.back().pid = pid;
            }
            return true;
        });
    }
    return rows_;
}

} // namespace meridal
