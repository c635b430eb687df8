// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/traffic/SocketDiag.h"

#include "platform/linux/kernel/NetlinkAttributes.h"

#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>

namespace meridal {

namespace {

// linux/tcp.h has the record and netinet/tcp.h the states, and the two cannot be had together.
constexpr std::uint32_t stateFinWait1 =
    4; ///< this and the next ones, but for listening, are those of a connection that ends
constexpr std::uint32_t stateTimeWait = 6;
constexpr std::uint32_t stateClose = 7;
constexpr std::uint32_t stateListen = 10;
constexpr std::uint32_t stateNewConnection = 12;
constexpr std::uint32_t statesWithTraffic = 0x1FFE & ~(1U << stateTimeWait | 1U << stateListen | 1U << stateClose);
constexpr std::uint32_t everyState = ~0U; // an unconnected UDP socket counts as closed

inet_diag_req_v2& putRequest(nlmsghdr& header, std::uint16_t flags, std::uint32_t sequence)
{
    header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
    header.nlmsg_flags = static_cast<std::uint16_t>(NLM_F_REQUEST | flags);
    header.nlmsg_seq = sequence;
    return *static_cast<inet_diag_req_v2*>(mnl_nlmsg_put_extra_header(&header, sizeof(inet_diag_req_v2)));
}

void readCounts(const nlmsghdr& header, DiagSocket& socket)
{
    forEachAttribute<inet_diag_msg>(header, [&socket](const nlattr& attribute) {
        const std::size_t size = mnl_attr_get_payload_len(&attribute);
        if (mnl_attr_get_type(&attribute) != INET_DIAG_INFO
            || size < offsetof(tcp_info, tcpi_bytes_received) + sizeof(std::uint64_t)) {
            return;
        }
        tcp_info info{};
        std::memcpy(&info, mnl_attr_get_payload(&attribute), std::min(size, sizeof(info)));
        // Older kernels count only what was acknowledged, which comes to the same a moment later.
        const bool countsSent = size >= offsetof(tcp_info, tcpi_bytes_sent) + sizeof(std::uint64_t);
        socket.bytesReceived = info.tcpi_bytes_received;
        socket.bytesSent = countsSent ? info.tcpi_bytes_sent : info.tcpi_bytes_acked;
    });
}

std::optional<DiagSocket> socketFrom(const nlmsghdr& header, std::uint8_t protocol)
{
    if (header.nlmsg_type != SOCK_DIAG_BY_FAMILY || mnl_nlmsg_get_payload_len(&header) < sizeof(inet_diag_msg)) {
        return std::nullopt;
    }
    const auto& message = *static_cast<const inet_diag_msg*>(mnl_nlmsg_get_payload(&header));
    DiagSocket socket;
    socket.flow.isIPv6 = message.idiag_family == AF_INET6;
    const std::size_t addressSize = socket.flow.isIPv6 ? 16 : 4;
    std::memcpy(socket.flow.local.data(), message.id.idiag_src, addressSize);
    std::memcpy(socket.flow.foreign.data(), message.id.idiag_dst, addressSize);
    socket.flow.localPort = ntohs(message.id.idiag_sport);
    socket.flow.foreignPort = ntohs(message.id.idiag_dport);
    socket.flow.interface = message.id.idiag_if;
    socket.flow.protocol = protocol;
    socket.inode = message.idiag_inode;
    socket.cookie = std::uint64_t{message.id.idiag_cookie[1]} << 32 | message.id.idiag_cookie[0];
    socket.isListening = protocol == IPPROTO_TCP && message.idiag_state == stateListen;
    socket.isClosing = protocol == IPPROTO_TCP && message.idiag_state >= stateFinWait1 && !socket.isListening
        && message.idiag_state != stateNewConnection;
    readCounts(header, socket);
    return socket;
}

} // namespace

void SocketDiag::Closer::operator()(mnl_socket* socket) const { mnl_socket_close(socket); }

SocketDiag::SocketDiag() : buffer_(std::make_unique_for_overwrite<std::array<char, 65'536>>()) { }

SocketDiag::~SocketDiag() = default;

bool SocketDiag::open()
{
    if (socket_) {
        return true;
    }
    socket_.reset(mnl_socket_open2(NETLINK_SOCK_DIAG, SOCK_CLOEXEC));
    if (!socket_ || mnl_socket_bind(socket_.get(), 0, MNL_SOCKET_AUTOPID) < 0) {
        socket_.reset();
        return false;
    }
    const timeval patience{.tv_sec = 1, .tv_usec = 0}; // the kernel answers at once, or an answer was lost
    ::setsockopt(mnl_socket_get_fd(socket_.get()), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
    return true;
}

std::optional<DiagSocket> SocketDiag::find(const SocketFlow& flow)
{
    if (!open() || (flow.protocol != IPPROTO_TCP && flow.protocol != IPPROTO_UDP && flow.protocol != IPPROTO_UDPLITE)) {
        return std::nullopt;
    }
    alignas(nlmsghdr) std::array<char, 128> bytes = {};
    nlmsghdr& header = *mnl_nlmsg_put_header(bytes.data());
    inet_diag_req_v2& request = putRequest(header, 0, ++sequence_);
    request.sdiag_family = flow.isIPv6 ? AF_INET6 : AF_INET;
    request.sdiag_protocol = flow.protocol;
    request.idiag_states = everyState;
    // For UDP the kernel takes the two ends the other way round, "for historical reasons".
    const bool isSwapped = flow.protocol != IPPROTO_TCP;
    const auto& source = isSwapped ? flow.foreign : flow.local;
    const auto& destination = isSwapped ? flow.local : flow.foreign;
    std::memcpy(request.id.idiag_src, source.data(), source.size());
    std::memcpy(request.id.idiag_dst, destination.data(), destination.size());
    request.id.idiag_sport = htons(isSwapped ? flow.foreignPort : flow.localPort);
    request.id.idiag_dport = htons(isSwapped ? flow.localPort : flow.foreignPort);
    request.id.idiag_if = flow.interface;
    request.id.idiag_cookie[0] = request.id.idiag_cookie[1] = INET_DIAG_NOCOOKIE;
    if (mnl_socket_sendto(socket_.get(), &header, header.nlmsg_len) < 0) {
        socket_.reset();
        return std::nullopt;
    }
    while (true) {
        const ssize_t size = mnl_socket_recvfrom(socket_.get(), buffer_->data(), buffer_->size());
        if (size < 0) {
            socket_.reset(); // a new one has no stale answers in it
            return std::nullopt;
        }
        const auto& answer = *reinterpret_cast<const nlmsghdr*>(buffer_->data());
        if (mnl_nlmsg_ok(&answer, static_cast<int>(size)) && answer.nlmsg_seq == sequence_) {
            return socketFrom(answer, flow.protocol); // an error is an answer too: there is none
        }
    }
}

bool SocketDiag::dump(std::uint8_t protocol, bool isIPv6, Counts counts, const Visit& visit)
{
    for (int attempts = 0; attempts < 2; ++attempts) {
        const Outcome outcome = attempt(protocol, isIPv6, counts, visit);
        if (outcome != Outcome::Again) {
            return outcome == Outcome::Done;
        }
    }
    return false;
}

SocketDiag::Outcome SocketDiag::attempt(std::uint8_t protocol, bool isIPv6, Counts counts, const Visit& visit)
{
    if (!open()) {
        return Outcome::Failed;
    }
    alignas(nlmsghdr) std::array<char, 128> bytes = {};
    nlmsghdr& header = *mnl_nlmsg_put_header(bytes.data());
    inet_diag_req_v2& request = putRequest(header, NLM_F_DUMP, ++sequence_);
    request.sdiag_family = isIPv6 ? AF_INET6 : AF_INET;
    request.sdiag_protocol = protocol;
    request.idiag_states = protocol == IPPROTO_TCP ? statesWithTraffic : everyState;
    request.idiag_ext = counts == Counts::Yes ? 1U << (INET_DIAG_INFO - 1) : 0;
    if (mnl_socket_sendto(socket_.get(), &header, header.nlmsg_len) < 0) {
        socket_.reset();
        return Outcome::Again;
    }
    bool isInterrupted = false;
    bool isEnd = false;
    while (!isEnd) {
        const Outcome outcome = readDump(visit, protocol, isInterrupted, isEnd);
        if (outcome != Outcome::Done) {
            return outcome;
        }
    }
    return isInterrupted ? Outcome::Again : Outcome::Done;
}

SocketDiag::Outcome SocketDiag::readDump(const Visit& visit, std::uint8_t protocol, bool& isInterrupted, bool& isEnd)
{
    const ssize_t size = mnl_socket_recvfrom(socket_.get(), buffer_->data(), buffer_->size());
    if (size < 0) {
        socket_.reset(); // overrun or silence: whatever still comes belongs to nobody
        return Outcome::Again;
    }
    int left = static_cast<int>(size);
    const auto* header = reinterpret_cast<const nlmsghdr*>(buffer_->data());
    for (; mnl_nlmsg_ok(header, left); header = mnl_nlmsg_next(header, &left)) {
        if (header->nlmsg_seq != sequence_) {
            continue;
        }
        isInterrupted = isInterrupted || (header->nlmsg_flags & NLM_F_DUMP_INTR) != 0;
        if (header->nlmsg_type == NLMSG_DONE) {
            isEnd = true;
            return Outcome::Done;
        }
        if (header->nlmsg_type == NLMSG_ERROR) {
            isEnd = true;
            return Outcome::Failed; // no such protocol, no such family
        }
        if (const auto socket = socketFrom(*header, protocol)) {
            visit(*socket);
        }
    }
    return Outcome::Done;
}

void SocketEnds::Closer::operator()(mnl_socket* socket) const { mnl_socket_close(socket); }

SocketEnds::SocketEnds() : socket_(mnl_socket_open2(NETLINK_SOCK_DIAG, SOCK_CLOEXEC | SOCK_NONBLOCK))
{
    constexpr int roomForEnds = 4 << 20; // bytes: some thousands of ends between two readings
    constexpr unsigned groups = 1U << (SKNLGRP_INET_TCP_DESTROY - 1) | 1U << (SKNLGRP_INET6_TCP_DESTROY - 1);
    if (!socket_ || mnl_socket_bind(socket_.get(), groups, MNL_SOCKET_AUTOPID) < 0) {
        socket_.reset();
        return;
    }
    const int descriptor = mnl_socket_get_fd(socket_.get());
    if (::setsockopt(descriptor, SOL_SOCKET, SO_RCVBUFFORCE, &roomForEnds, sizeof(roomForEnds)) != 0) {
        ::setsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &roomForEnds, sizeof(roomForEnds));
    }
}

SocketEnds::~SocketEnds() = default;

void SocketEnds::read(const SocketDiag::Visit& visit)
{
    constexpr int mostAtOnce = 20'000;
    alignas(nlmsghdr) std::array<char, 8192> buffer;
    for (int count = 0; socket_ && count < mostAtOnce; ++count) {
        const ssize_t size = mnl_socket_recvfrom(socket_.get(), buffer.data(), buffer.size());
        if (size < 0 && errno != ENOBUFS && errno != EINTR) {
            return; // none is left; one that was lost for want of room ends with the next reading of all sockets
        }
        int left = size < 0 ? 0 : static_cast<int>(size);
        const auto* header = reinterpret_cast<const nlmsghdr*>(buffer.data());
        for (; mnl_nlmsg_ok(header, left); header = mnl_nlmsg_next(header, &left)) {
            if (const auto socket = socketFrom(*header, IPPROTO_TCP)) {
                visit(*socket);
            }
        }
    }
}

} // namespace meridal
