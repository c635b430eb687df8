// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Runtime.h"
#include "base/TaskSlot.h"
#include "platform/macos/kernel/DispatchGround.h"

#include <dispatch/dispatch.h>

#include <atomic>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace meridal {

/// A queue of DispatchRuntime's. Which queue a thread is on is noted here: libdispatch itself takes the main thread for the
/// main queue whenever it is in no task of another.
class DispatchQueue : public Queue {
public:
    bool isCurrent() const override;
    const std::string& label() const override { return label_; }
    virtual dispatch_queue_t native() const = 0;
    /// A timer of this queue fires, on the queue.
    virtual void fire(const std::shared_ptr<TaskSlot>& task) = 0;
    /// Drops the tasks that wait, and all that come later; callers who wait for theirs return.
    virtual void close() = 0;

protected:
    DispatchQueue(std::shared_ptr<const DispatchGround> ground, std::string label);
    void perform(const Task& task) const;

private:
    const std::shared_ptr<const DispatchGround> ground_;
    const std::string label_;
};

/// The process's main dispatch queue. libdispatch never forgets what it was given and runs it in batches, so it is given
/// only calls to come and look: tasks wait here, where stop() can leave them for the next run and close() can drop them.
class DispatchMainQueue final : public DispatchQueue, public std::enable_shared_from_this<DispatchMainQueue> {
public:
    explicit DispatchMainQueue(std::shared_ptr<DispatchGround> ground);

    void post(Task task) override;
    void runAndWait(const Task& task) override;
    dispatch_queue_t native() const override { return dispatch_get_main_queue(); }
    void fire(const std::shared_ptr<TaskSlot>& task) override;
    void close() override;

    void after(double seconds, Task task);
    void run();
    void stop();
    /// Whether fire() would run the task at once: not while run() is about to return, nor before the tasks that an earlier
    /// run left. What is reported again may be left until then.
    bool mayFireNow() const;

private:
    bool isStopping() const;
    void append(Task&& task);
    void callForTask();
    void runFirst();
    void runDelayed(std::uint64_t id);

    const std::shared_ptr<DispatchGround> ground_;
    mutable std::mutex mutex_; ///< guards all below
    std::deque<Task> tasks_;
    std::size_t calls_ = 0; ///< to runFirst(), on their way
    std::size_t kept_ = 0;  ///< of the tasks, the first so many: since before this run, or fired behind such
    std::map<std::uint64_t, Task> delayed_;
    std::uint64_t lastDelayed_ = 0;
    bool stopping_ = false;
    bool closed_ = false;
};

/// A serial dispatch queue.
class DispatchSerialQueue final : public DispatchQueue, public std::enable_shared_from_this<DispatchSerialQueue> {
public:
    DispatchSerialQueue(
        std::shared_ptr<const DispatchGround> ground, std::shared_ptr<DispatchMainQueue> main, std::string label);
    ~DispatchSerialQueue() override { dispatch_release(queue_); }
    DispatchSerialQueue(const DispatchSerialQueue&) = delete;
    DispatchSerialQueue& operator=(const DispatchSerialQueue&) = delete;

    void post(Task task) override;
    /// Returns without having run the task when the queue is closed meanwhile.
    void runAndWait(const Task& task) override;
    dispatch_queue_t native() const override { return queue_; }
    void fire(const std::shared_ptr<TaskSlot>& task) override;
    void close() override { closed_ = true; }
    /// Of a closed queue: waits for the task in progress, and until the others are let go.
    void drain();

private:
    const std::shared_ptr<DispatchMainQueue> main_; ///< where tasks post: it must be there as long as one of them runs
    const dispatch_queue_t queue_;
    std::atomic<bool> closed_ = false;
};

} // namespace meridal
