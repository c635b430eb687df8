// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Runtime.h"

#include <memory>
#include <mutex>
#include <utility>

namespace meridal {

/// A task that can be taken away from under those who run it, even by itself. Once clear() has returned on the queue
/// where the task runs, it does not run again and what it holds is let go (after the run in progress, if that is where
/// the call came from). Thread-safe.
class TaskSlot {
public:
    explicit TaskSlot(Task task) : task_(std::make_shared<Task>(std::move(task))) { }

    void run() const
    {
        if (const auto task = get()) {
            (*task)();
        }
    }

    void clear()
    {
        std::shared_ptr<Task> last; // goes outside the lock: what the task holds may come back here
        const std::lock_guard lock(mutex_);
        last.swap(task_);
    }

private:
    std::shared_ptr<Task> get() const
    {
        const std::lock_guard lock(mutex_);
        return task_;
    }

    mutable std::mutex mutex_;
    std::shared_ptr<Task> task_;
};

} // namespace meridal
