// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Runtime.h"

#include <memory>
#include <vector>

namespace asio {
class io_context;
}

namespace meridal {

/// The client's one thread: timers, signals, the keyboard and the socket take turns on it. A command needs no queues
/// and no pool, so this is all of a runtime that it starts.
class EventLoop {
public:
    EventLoop();
    ~EventLoop();
    EventLoop(const EventLoop&) = delete;
    EventLoop& operator=(const EventLoop&) = delete;

    /// Seconds from an arbitrary origin that never step.
    double now() const;
    /// Runs the task once. Destroying the timer prevents it; the task may destroy its own timer.
    [[nodiscard]] std::unique_ptr<Timer> after(double seconds, Task task);
    /// Runs the task for each arrival of one of the signals, whose default action is switched off meanwhile.
    [[nodiscard]] std::unique_ptr<Watch> watchSignals(const std::vector<int>& signals, Task task);
    /// Runs the task while the descriptor can be read; never for what cannot be waited for (a file, /dev/null).
    [[nodiscard]] std::unique_ptr<Watch> watchReadable(int descriptor, Task task);

    /// Runs until stop(), or until nothing is left to wait for. May be run again.
    void run();
    void stop();

    /// For those who do their own input and output on this thread.
    asio::io_context& context();

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace meridal
