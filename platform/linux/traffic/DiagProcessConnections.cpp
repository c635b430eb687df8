// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/traffic/LinuxTraffic.h"
#include "platform/linux/traffic/SocketDiag.h"
#include "platform/linux/traffic/SocketInodes.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <array>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace meridal {

namespace {

/// Of IPv4, which a socket of IPv6 may speak, as such.
std::string addressText(const std::array<std::uint8_t, 16>& address, bool isIPv6)
{
    constexpr std::array<std::uint8_t, 12> mapped = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};
    const bool isMapped = isIPv6 && std::equal(mapped.begin(), mapped.end(), address.begin());
    std::array<char, INET6_ADDRSTRLEN> text{};
    ::inet_ntop(isIPv6 && !isMapped ? AF_INET6 : AF_INET, address.data() + (isMapped ? mapped.size() : 0), text.data(),
        static_cast<socklen_t>(text.size()));
    return text.data();
}

class DiagProcessConnections final : public ProcessConnections {
public:
    explicit DiagProcessConnections(const std::filesystem::path& root) : sockets_(root / "proc") { }

    std::span<const ConnectionRecord> readConnections(std::span<const std::int32_t> pids) override;
    std::vector<ProcessSocket> socketsOf(std::int32_t pid, std::size_t most) override;

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

/// What it has, before all that there are: most processes have none.
std::vector<ProcessSocket> DiagProcessConnections::socketsOf(std::int32_t pid, std::size_t most)
{
    std::unordered_set<std::uint64_t> wanted;
    sockets_.forEachDescriptor(pid, [&](int fd) {
        if (const std::uint64_t inode = sockets_.inodeOf(pid, fd)) {
            wanted.insert(inode);
        }
        return wanted.size() < most;
    });
    std::vector<ProcessSocket> found;
    const auto take = [&](const DiagSocket& socket) {
        if (socket.flow.foreignPort != 0 && wanted.erase(socket.inode) > 0) {
            found.push_back({.protocol = socket.flow.protocol,
                .host = addressText(socket.flow.foreign, socket.flow.isIPv6),
                .port = socket.flow.foreignPort,
                .localPort = socket.flow.localPort,
                .bytesReceived = socket.bytesReceived,
                .bytesSent = socket.bytesSent});
        }
    };
    for (const bool isIPv6 : {false, true}) {
        for (const auto protocol : {IPPROTO_TCP, IPPROTO_UDP}) {
            if (!wanted.empty()) {
                diag_.dump(static_cast<std::uint8_t>(protocol), isIPv6,
                    protocol == IPPROTO_TCP ? SocketDiag::Counts::Yes : SocketDiag::Counts::No, take);
            }
        }
    }
    return found;
}

} // namespace

std::unique_ptr<ProcessConnections> makeDiagProcessConnections(const std::filesystem::path& root)
{
    return std::make_unique<DiagProcessConnections>(root);
}

} // namespace meridal
