// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Runtime.h"

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string>

namespace meridal {

class ThreadPool;

/// A queue whose tasks run one after another on threads of a pool. A caller that waits lends the queue its own thread,
/// so that waiting never needs a free thread of the pool: a pool of two does not lock up when both wait for a third
/// queue.
class SerialQueue final : public Queue, public std::enable_shared_from_this<SerialQueue> {
public:
    SerialQueue(std::shared_ptr<ThreadPool> pool, std::string label);

    void post(Task task) override;
    void runAndWait(const Task& task) noexcept override;
    bool isCurrent() const override;
    const std::string& label() const override { return label_; }
    /// Drops the tasks that wait, and all that come later.
    void close();

private:
    /// What waits in line: a task, or the turn of a caller who runs his own.
    struct Entry {
        Task task;
        const void* caller = nullptr;
    };

    void schedule(std::unique_lock<std::mutex> lock);
    void serveOnPool();
    void runFirst(std::unique_lock<std::mutex>& lock);

    const std::shared_ptr<ThreadPool> pool_;
    const std::string label_;
    std::mutex mutex_; ///< guards all below
    std::condition_variable turn_;
    std::deque<Entry> line_;
    bool served_ = false;    ///< a thread runs a task of this queue
    bool scheduled_ = false; ///< the pool has been asked for a thread
    bool closed_ = false;
};

} // namespace meridal
