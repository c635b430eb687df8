// SPDX-License-Identifier: Apache-2.0
#include "daemon/transport/EnvelopeRound.h"

#include "daemon/transport/UnixSocketConnection.h"

#include <asio/post.hpp>

#include <algorithm>
#include <utility>

namespace meridal {

namespace {
/// Connections that are written to before others on the listener's thread get their turn: some 0.1 ms.
constexpr std::size_t connectionsAtOnce = 16;
} // namespace

void EnvelopeRound::add(std::weak_ptr<UnixSocketConnection> connection)
{
    const std::lock_guard lock(mutex_);
    if (closed_) {
        return;
    }
    if (!mainQueue_.isCurrent()) {
        deliver(listener_, {std::move(connection)}, 0);
        return;
    }
    if (waiting_.empty()) {
        mainQueue_.post([self = shared_from_this()] { self->tellAll(); });
    }
    waiting_.push_back(std::move(connection));
}

void EnvelopeRound::close()
{
    const std::lock_guard lock(mutex_);
    closed_ = true;
    waiting_.clear();
}

void EnvelopeRound::tellAll()
{
    const std::lock_guard lock(mutex_);
    if (!closed_) {
        deliver(listener_, std::exchange(waiting_, {}), 0);
    }
}

void EnvelopeRound::deliver(asio::io_context& listener, Connections connections, std::size_t first)
{
    asio::post(listener, [&listener, connections = std::move(connections), first]() mutable {
        const std::size_t end = std::min(first + connectionsAtOnce, connections.size());
        for (std::size_t index = first; index < end; ++index) {
            if (const auto connection = connections[index].lock()) {
                connection->deliver();
            }
        }
        if (end < connections.size()) {
            deliver(listener, std::move(connections), end);
        }
    });
}

} // namespace meridal
