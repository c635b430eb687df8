// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/kernel/NetlinkSocket.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <libmnl/libmnl.h>
#include <linux/netlink.h>
#include <string_view>
#include <sys/socket.h>
#include <sys/time.h>

namespace meridal {

namespace {

constexpr std::size_t bufferBytes = 64 * 1024; // the kernel fills up to 32 KiB at once
constexpr int newsBuffer = 1024 * 1024;        // bytes that wait in the kernel
constexpr int mostReadsAtOnce = 256;

/// errno that an NLMSG_ERROR or NLMSG_DONE message carries; 0 for none.
int errorIn(const nlmsghdr& message)
{
    if (mnl_nlmsg_get_payload_len(&message) < sizeof(int)) {
        return message.nlmsg_type == NLMSG_ERROR ? EPROTO : 0;
    }
    return -*static_cast<const int*>(mnl_nlmsg_get_payload(&message));
}

} // namespace

void forEachNetlinkMessage(const void* buffer, std::size_t size, const NetlinkSocket::Handler& handler)
{
    // Not libmnl's own walk: it takes a length for an int, and one beyond that for a short one.
    std::string_view left(static_cast<const char*>(buffer), size);
    while (left.size() >= sizeof(nlmsghdr)) {
        const auto& message = *reinterpret_cast<const nlmsghdr*>(left.data()); // aligned to 4, as the buffer is
        if (message.nlmsg_len < sizeof(nlmsghdr) || message.nlmsg_len > left.size()) {
            return;
        }
        handler(message);
        left.remove_prefix(std::min(left.size(), (std::size_t{message.nlmsg_len} + 3) & ~std::size_t{3}));
    }
}

NetlinkSocket::NetlinkSocket(int protocol)
    : socket_(mnl_socket_open2(protocol, SOCK_CLOEXEC))
    , buffer_(std::make_unique_for_overwrite<std::uint32_t[]>(bufferBytes / sizeof(std::uint32_t)))
{
    if (!socket_) {
        error_ = errno;
        return;
    }
    if (mnl_socket_bind(socket_, 0, MNL_SOCKET_AUTOPID) < 0) {
        error_ = errno;
        mnl_socket_close(socket_);
        socket_ = nullptr;
        return;
    }
    const timeval patience{.tv_sec = 1, .tv_usec = 0};
    ::setsockopt(mnl_socket_get_fd(socket_), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
}

NetlinkSocket::~NetlinkSocket()
{
    if (socket_) {
        mnl_socket_close(socket_);
    }
}

NetlinkOutcome NetlinkSocket::ask(nlmsghdr& request, const Handler& handler)
{
    if (!socket_) {
        return NetlinkOutcome::Failed;
    }
    request.nlmsg_seq = ++lastNumber_;
    if (mnl_socket_sendto(socket_, &request, request.nlmsg_len) < 0) {
        error_ = errno;
        return NetlinkOutcome::Failed;
    }
    return readAnswer(lastNumber_, handler);
}

NetlinkOutcome NetlinkSocket::readAnswer(std::uint32_t number, const Handler& handler)
{
    NetlinkOutcome outcome = NetlinkOutcome::Complete;
    for (bool finished = false; !finished;) {
        const ssize_t size = mnl_socket_recvfrom(socket_, buffer_.get(), bufferBytes);
        if (size < 0 && errno == EINTR) {
            continue;
        }
        if (size <= 0) { // ENOBUFS too: part of the answer is gone
            error_ = errno;
            return NetlinkOutcome::Failed;
        }
        forEachNetlinkMessage(buffer_.get(), static_cast<std::size_t>(size), [&](const nlmsghdr& message) {
            if (message.nlmsg_seq != number || finished) {
                return; // of an answer that was given up
            }
            if ((message.nlmsg_flags & NLM_F_DUMP_INTR) != 0) {
                outcome = NetlinkOutcome::Interrupted;
            }
            if (message.nlmsg_type == NLMSG_ERROR || message.nlmsg_type == NLMSG_DONE) {
                finished = true;
                if (const int error = errorIn(message); error > 0) {
                    error_ = error;
                    outcome = NetlinkOutcome::Failed;
                }
                return;
            }
            if (message.nlmsg_type >= NLMSG_MIN_TYPE) {
                handler(message);
                finished = (message.nlmsg_flags & NLM_F_MULTI) == 0;
            }
        });
    }
    return outcome;
}

bool NetlinkSocket::askEach(std::span<std::uint32_t> requests, const EachHandler& handler)
{
    const std::uint32_t first = lastNumber_ + 1;
    forEachNetlinkMessage(requests.data(), requests.size_bytes(), [this](const nlmsghdr& request) {
        const_cast<nlmsghdr&>(request).nlmsg_seq = ++lastNumber_; // the caller's memory, which is not const
    });
    if (!socket_ || mnl_socket_sendto(socket_, requests.data(), requests.size_bytes()) < 0) {
        error_ = socket_ ? errno : error_;
        return false;
    }
    for (std::uint32_t missing = lastNumber_ + 1 - first; missing > 0;) {
        const ssize_t size = ::recv(mnl_socket_get_fd(socket_), buffer_.get(), bufferBytes, MSG_DONTWAIT);
        if (size <= 0) {
            error_ = errno;
            return false;
        }
        forEachNetlinkMessage(buffer_.get(), static_cast<std::size_t>(size), [&](const nlmsghdr& message) {
            if (const std::uint32_t index = message.nlmsg_seq - first; index <= lastNumber_ - first && missing > 0) {
                handler(index, message);
                --missing;
            }
        });
    }
    return true;
}

bool NetlinkSocket::join(unsigned group)
{
    if (!socket_) {
        return false;
    }
    ::setsockopt(mnl_socket_get_fd(socket_), SOL_SOCKET, SO_RCVBUF, &newsBuffer, sizeof newsBuffer);
    int number = static_cast<int>(group);
    return mnl_socket_setsockopt(socket_, NETLINK_ADD_MEMBERSHIP, &number, sizeof number) == 0;
}

NetlinkNews NetlinkSocket::receiveNews(const Handler& handler)
{
    if (!socket_) {
        return NetlinkNews::Nothing;
    }
    NetlinkNews news = NetlinkNews::Nothing;
    for (int i = 0; i < mostReadsAtOnce; ++i) {
        const ssize_t size = ::recv(mnl_socket_get_fd(socket_), buffer_.get(), bufferBytes, MSG_DONTWAIT);
        if (size > 0) {
            news = news == NetlinkNews::Nothing ? NetlinkNews::Something : news;
            forEachNetlinkMessage(buffer_.get(), static_cast<std::size_t>(size), handler);
        } else if (size < 0 && errno == ENOBUFS) {
            news = NetlinkNews::Lost;
        } else if (size == 0 || errno != EINTR) {
            break;
        }
    }
    return news;
}

} // namespace meridal
