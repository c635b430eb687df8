// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/traffic/LinuxTraffic.h"
#include "platform/linux/traffic/SocketDiag.h"
#include "platform/linux/traffic/SocketInodes.h"

#include <netinet/in.h>

#include <unordered_map>
#include <vector>

namespace meridal {

namespace {

class DiagProcessConnections final : public ProcessConnections {
public:
    explicit DiagProcessConnections(const std::filesystem::path& root) : sockets_(root / "proc") { }

    std::span<const ConnectionRecord> readConnections(std::span<const std::int32_t> pids) override;

private:
    SocketDiag diag_;
    ProcSockets sockets_;
    std::vector<ConnectionRecord> rows_;
};

std::span<const ConnectionRecord> DiagProcessConnections::readConnections(std::span<const std::int32_t> pids)
{
    std::unordered_map<std::uint64_t, ConnectionRecord> byInode;
    const auto take = [&byInode](const DiagSocket& socket) {
        if (socket.inode != 0) {
            ConnectionRecord& record = byInode[socket.inode];
            record.localPort = socket.flow.localPort;
            record.foreignPort = socket.flow.foreignPort;
            record.bytesReceived = socket.bytesReceived;
            record.bytesSent = socket.bytesSent;
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

} // namespace

std::unique_ptr<ProcessConnections> makeDiagProcessConnections(const std::filesystem::path& root)
{
    return std::make_unique<DiagProcessConnections>(root);
}

} // namespace meridal
