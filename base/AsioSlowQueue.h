// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Runtime.h"

#include <deque>
#include <memory>
#include <mutex>
#include <string>

namespace meridal {

class AsioMainLoop;

/// A serial queue for calls that may hang in the kernel for minutes. It has a thread of its own while there is work, so
/// that such a call holds up nobody else, and nobody waits for that thread at the end: a process that wants to leave
/// leaves. What its tasks touch must therefore be theirs alone, or the main queue's by a posted task.
class AsioSlowQueue final : public Queue, public std::enable_shared_from_this<AsioSlowQueue> {
public:
    AsioSlowQueue(std::shared_ptr<AsioMainLoop> loop, std::string label);

    void post(Task task) override;
    /// Returns without having run the task when the queue is closed meanwhile.
    void runAndWait(const Task& task) override;
    bool isCurrent() const override;
    const std::string& label() const override { return label_; }
    /// Drops the tasks that wait, and all that come later; the one in progress goes on, unattended.
    void close();

private:
    void serve();

    const std::shared_ptr<AsioMainLoop> loop_; ///< where tasks post: it must be there as long as one of them runs
    const std::string label_;
    std::mutex mutex_; ///< guards all below
    std::deque<Task> line_;
    bool served_ = false;
    bool closed_ = false;
};

} // namespace meridal
