// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>

struct mnl_socket;
struct nlmsghdr;

namespace meridal {

/// How a question to the kernel ended.
enum class NetlinkOutcome {
    Complete,
    Interrupted, ///< the table changed while it was being read: rows may be missing or there twice
    Failed,
};

/// What came on a socket that listens to announcements.
enum class NetlinkNews {
    Nothing,
    Something,
    Lost, ///< more than it could hold: what is known must be read anew
};

/// A netlink socket, for questions or for announcements, not both: a flood of announcements would drown answers. Never
/// waits longer than a second for the kernel, which answers at once. One queue at a time.
class NetlinkSocket {
public:
    using Handler = std::function<void(const nlmsghdr&)>;
    using EachHandler = std::function<void(std::size_t, const nlmsghdr&)>;

    /// `protocol` is NETLINK_ROUTE, NETLINK_GENERIC and so on.
    explicit NetlinkSocket(int protocol);
    ~NetlinkSocket();
    NetlinkSocket(const NetlinkSocket&) = delete;
    NetlinkSocket& operator=(const NetlinkSocket&) = delete;

    bool isOpen() const { return socket_ != nullptr; }
    /// Sends a request, numbered here, and hands over every message of the answer.
    NetlinkOutcome ask(nlmsghdr& request, const Handler& handler);
    /// Sends requests that the kernel answers at once, with one message each: in one piece, with one call. Hands over the
    /// answers with the index of the request; a refusal is an answer. `requests` holds whole messages, numbered here. False
    /// when it was not sent, or answers are missing.
    bool askEach(std::span<std::uint32_t> requests, const EachHandler& handler);
    /// Listens to a multicast group from now on.
    bool join(unsigned group);
    /// Hands over what has been announced, without waiting; at most so many messages' worth of reads at once.
    NetlinkNews receiveNews(const Handler& handler);
    /// errno of the latest failure.
    int error() const { return error_; }

private:
    NetlinkOutcome readAnswer(std::uint32_t number, const Handler& handler);

    mnl_socket* socket_ = nullptr;
    std::uint32_t lastNumber_ = 0;
    int error_ = 0;
    std::unique_ptr<std::uint32_t[]> buffer_; ///< not zeroed: answers are mostly short, and the rest takes no memory
};

/// Walks over the messages in a buffer, which may hold anything. Stops after the first one that does not fit.
void forEachNetlinkMessage(const void* buffer, std::size_t size, const NetlinkSocket::Handler& handler);

} // namespace meridal
