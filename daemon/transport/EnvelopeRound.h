// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Runtime.h"

#include <asio/io_context.hpp>

#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

namespace meridal {

class UnixSocketConnection;

/// Wakes a listener's thread for envelopes: once for all connections that a turn of the main queue has given some. A
/// pass hands each client several lists; were the thread woken for each of them, it would run beside the pass to find
/// one list, and sleep again. Thread-safe, and outlives the listener with its connections.
class EnvelopeRound : public std::enable_shared_from_this<EnvelopeRound> {
public:
    /// The queue and the listener's context are used until close().
    EnvelopeRound(Queue& mainQueue, asio::io_context& listener) : mainQueue_(mainQueue), listener_(listener) { }

    /// There are envelopes for a connection, which is told so on the listener's thread: when the tasks that wait in the
    /// main queue have run if the caller runs there, else at once.
    void add(std::weak_ptr<UnixSocketConnection> connection);
    /// Nobody is told any more.
    void close();

private:
    using Connections = std::vector<std::weak_ptr<UnixSocketConnection>>;

    void tellAll();
    static void deliver(asio::io_context& listener, Connections connections, std::size_t first);

    std::mutex mutex_; ///< guards all below
    bool closed_ = false;
    Queue& mainQueue_;
    asio::io_context& listener_;
    Connections waiting_; ///< for the end of the turn
};

} // namespace meridal
