// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace meridal {

class Queue;

/// Marks the calling thread as running a task of a queue, for as long as it lives. Scopes nest when a thread serves
/// another queue while it waits for it; the innermost counts.
class CurrentQueue {
public:
    explicit CurrentQueue(const Queue* queue) : previous_(current_) { current_ = queue; }
    ~CurrentQueue() { current_ = previous_; }
    CurrentQueue(const CurrentQueue&) = delete;
    CurrentQueue& operator=(const CurrentQueue&) = delete;

    /// The queue whose task the calling thread runs; null outside all queues.
    static const Queue* get() { return current_; }

private:
    const Queue* previous_;
    inline static thread_local const Queue* current_ = nullptr;
};

} // namespace meridal
