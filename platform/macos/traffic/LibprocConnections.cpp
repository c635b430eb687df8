// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/traffic/MacAdapters.h"

#include <arpa/inet.h>
#include <libproc.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <string>
#include <vector>

namespace meridal {

namespace {

/// Up to the ends of a socket, which begin the record of either protocol; what follows may grow with the SDK.
constexpr std::size_t socketBytes =
    offsetof(socket_fdinfo, psi) + offsetof(socket_info, soi_proto) + sizeof(in_sockinfo);
static_assert(offsetof(tcp_sockinfo, tcpsi_ini) == 0);

/// Ports lie in the low half of an int, in network order.
std::uint16_t portFrom(int field) { return ntohs(static_cast<std::uint16_t>(field)); }

/// The ends of a socket of TCP or UDP; null when it is another, or was closed since the list was made.
const in_sockinfo* readEnds(std::int32_t pid, std::int32_t descriptor, socket_fdinfo& socket)
{
    const int size = proc_pidfdinfo(pid, descriptor, PROC_PIDFDSOCKETINFO, &socket, sizeof(socket));
    if (size < static_cast<int>(socketBytes)) {
        return nullptr;
    }
    if (socket.psi.soi_kind == SOCKINFO_TCP) {
        return &socket.psi.soi_proto.pri_tcp.tcpsi_ini;
    }
    return socket.psi.soi_kind == SOCKINFO_IN ? &socket.psi.soi_proto.pri_in : nullptr;
}

/// The other end's address.
std::string hostOf(const in_sockinfo& ends)
{
    std::array<char, INET6_ADDRSTRLEN> text{};
    if ((ends.insi_vflag & INI_IPV4) != 0) {
        inet_ntop(AF_INET, &ends.insi_faddr.ina_46.i46a_addr4, text.data(), static_cast<socklen_t>(text.size()));
    } else {
        inet_ntop(AF_INET6, &ends.insi_faddr.ina_6, text.data(), static_cast<socklen_t>(text.size()));
    }
    return text.data();
}

class LibprocConnections final : public ProcessConnections {
public:
    std::span<const ConnectionRecord> readConnections(std::span<const std::int32_t> pids) override;
    std::vector<ProcessSocket> socketsOf(std::int32_t pid, std::size_t most) override;

private:
    std::span<const proc_fdinfo> listDescriptors(std::int32_t pid);
    void readSocket(std::int32_t pid, std::int32_t descriptor);

    std::vector<proc_fdinfo> descriptors_; ///< kept for its memory
    std::vector<ConnectionRecord> rows_;
};

} // namespace

std::span<const ConnectionRecord> LibprocConnections::readConnections(std::span<const std::int32_t> pids)
{
    rows_.clear();
    for (const std::int32_t pid : pids) {
        for (const proc_fdinfo& descriptor : listDescriptors(pid)) {
            if (descriptor.proc_fdtype == PROX_FDTYPE_SOCKET) {
                readSocket(pid, descriptor.proc_fd);
            }
        }
    }
    return rows_;
}

std::vector<ProcessSocket> LibprocConnections::socketsOf(std::int32_t pid, std::size_t most)
{
    std::vector<ProcessSocket> sockets;
    for (const proc_fdinfo& descriptor : listDescriptors(pid)) {
        if (descriptor.proc_fdtype != PROX_FDTYPE_SOCKET || sockets.size() >= most) {
            continue;
        }
        socket_fdinfo socket{};
        const in_sockinfo* ends = readEnds(pid, descriptor.proc_fd, socket);
        if (ends && ends->insi_fport != 0) {
            sockets.push_back({.protocol = static_cast<std::uint8_t>(socket.psi.soi_protocol),
                .host = hostOf(*ends),
                .port = portFrom(ends->insi_fport),
                .localPort = portFrom(ends->insi_lport)});
        }
    }
    return sockets;
}

std::span<const proc_fdinfo> LibprocConnections::listDescriptors(std::int32_t pid)
{
    const int estimate = proc_pidinfo(pid, PROC_PIDLISTFDS, 0, nullptr, 0); // bytes, with some to spare
    if (estimate <= 0) {
        return {};
    }
    const auto wanted = static_cast<std::size_t>(estimate) / sizeof(proc_fdinfo) + 1;
    descriptors_.resize(std::max(descriptors_.size(), wanted));
    const auto room = static_cast<int>(descriptors_.size() * sizeof(proc_fdinfo));
    const int written = proc_pidinfo(pid, PROC_PIDLISTFDS, 0, descriptors_.data(), room);
    if (written <= 0) {
        return {};
    }
    const auto count = std::min(static_cast<std::size_t>(written) / sizeof(proc_fdinfo), descriptors_.size());
    return std::span(descriptors_).first(count);
}

void LibprocConnections::readSocket(std::int32_t pid, std::int32_t descriptor)
{
    socket_fdinfo socket{};
    const in_sockinfo* ends = readEnds(pid, descriptor, socket);
    if (!ends || ends->insi_lport == 0) {
        return;
    }
    ConnectionRecord record;
    record.pid = pid;
    record.localPort = portFrom(ends->insi_lport);
    record.foreignPort = portFrom(ends->insi_fport);
    rows_.push_back(record);
}

std::unique_ptr<ProcessConnections> makeLibprocConnections() { return std::make_unique<LibprocConnections>(); }

} // namespace meridal
