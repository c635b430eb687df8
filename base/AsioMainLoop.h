// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Runtime.h"

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>

#include <deque>
#include <memory>
#include <mutex>
#include <string>

namespace meridal {

/// The main queue of AsioRuntime and the loop that serves it. Tasks wait here rather than inside Asio, so that those
/// left over can be dropped while the loop still exists.
class AsioMainLoop final : public Queue, public std::enable_shared_from_this<AsioMainLoop> {
public:
    void post(Task task) override;
    void runAndWait(const Task& task) override;
    bool isCurrent() const override;
    const std::string& label() const override { return label_; }

    void run();
    void stop() { context_.stop(); }
    /// Drops the tasks that wait, and all that come later; callers who wait for theirs return.
    void close();
    asio::io_context& context() { return context_; }

private:
    void runFirst();

    const std::string label_ = "main";
    asio::io_context context_{1}; // one thread runs it
    const asio::executor_work_guard<asio::io_context::executor_type> neverDone_{context_.get_executor()};
    std::mutex mutex_; ///< guards all below
    std::deque<Task> tasks_;
    bool closed_ = false;
};

} // namespace meridal
