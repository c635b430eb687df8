// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>

namespace meridal {

/// Lets few long requests of all clients be in service at once: one takes some twenty times its own size until it is answered.
/// The others wait for their turn. Thread-safe; outlives its listener with those who still hold a turn.
class LongRequests : public std::enable_shared_from_this<LongRequests> {
public:
    /// Held as long as a request is in service. Whoever lets go of it last, on any thread, gives the next its turn.
    using Turn = std::shared_ptr<const void>;
    using Start = std::function<void(const Turn&)>;

    static constexpr std::size_t mostAtOnce = 4;

    /// Calls `start` once it is its turn: now, or later on any thread, under a lock and never after close().
    void enter(Start start);
    /// Nobody else gets a turn.
    void close();

private:
    Turn makeTurn();
    void leave();

    std::mutex mutex_;
    std::size_t inService_ = 0;
    bool closed_ = false;
    std::deque<Start> waiting_;
};

} // namespace meridal
