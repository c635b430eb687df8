// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Runtime.h"

#include <cstddef>
#include <memory>

namespace meridal {

/// A few threads that run tasks concurrently. They start with the first task: a program that posts none has none.
/// Thread-safe.
class ThreadPool {
public:
    explicit ThreadPool(std::size_t threads);
    ~ThreadPool();
    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;

    void post(Task task);
    /// Waits for the tasks in progress and drops those that wait, and all that come later.
    void close();

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace meridal
