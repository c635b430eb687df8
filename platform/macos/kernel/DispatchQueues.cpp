// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/kernel/DispatchQueues.h"

#include "base/CurrentQueue.h"
#include "base/PostAndWait.h"
#include "platform/macos/kernel/DispatchCalls.h"

#include <cassert>
#include <utility>

namespace meridal {

DispatchQueue::DispatchQueue(std::shared_ptr<const DispatchGround> ground, std::string label)
    : ground_(std::move(ground)), label_(std::move(label))
{
}

bool DispatchQueue::isCurrent() const { return CurrentQueue::get() == this; }

void DispatchQueue::perform(const Task& task) const
{
    const CurrentQueue current(this);
    ground_->perform(task);
}

DispatchMainQueue::DispatchMainQueue(std::shared_ptr<DispatchGround> ground)
    : DispatchQueue(ground, "main"), ground_(std::move(ground))
{
}

void DispatchMainQueue::post(Task task)
{
    const std::lock_guard lock(mutex_);
    append(std::move(task));
}

/// With the mutex held, and so a task that is not wanted any more stays the caller's.
void DispatchMainQueue::append(Task&& task)
{
    if (!closed_) {
        tasks_.push_back(std::move(task));
        callForTask();
    }
}

/// With the mutex held.
void DispatchMainQueue::callForTask()
{
    ++calls_;
    dispatchAsync(native(), [self = shared_from_this()] { self->runFirst(); });
}

void DispatchMainQueue::runFirst()
{
    Task task;
    {
        const std::lock_guard lock(mutex_);
        --calls_;
        if (stopping_ || tasks_.empty()) {
            return;
        }
        task = std::move(tasks_.front());
        tasks_.pop_front();
        kept_ -= kept_ > 0 ? 1U : 0U;
    }
    perform([&] {
        task();
        task = nullptr; // what it held goes on this queue too
    });
}

void DispatchMainQueue::runAndWait(const Task& task)
{
    assert(!isCurrent());
    postAndWait(*this, task);
}

void DispatchMainQueue::fire(const std::shared_ptr<TaskSlot>& task)
{
    {
        const std::lock_guard lock(mutex_);
        if (stopping_ || kept_ > 0) {
            append([task] { task->run(); });
            kept_ = tasks_.size(); // nor may another timer overtake this one
            return;
        }
    }
    perform([&] { task->run(); });
}

void DispatchMainQueue::after(double seconds, Task task)
{
    const std::lock_guard lock(mutex_);
    if (closed_) {
        return;
    }
    const std::uint64_t id = ++lastDelayed_;
    delayed_.emplace(id, std::move(task));
    dispatchAfter(seconds, native(), [weak = weak_from_this(), id] {
        if (const auto self = weak.lock()) {
            self->runDelayed(id);
        }
    });
}

void DispatchMainQueue::runDelayed(std::uint64_t id)
{
    std::shared_ptr<TaskSlot> task;
    {
        const std::lock_guard lock(mutex_);
        if (auto found = delayed_.extract(id)) {
            task = std::make_shared<TaskSlot>(std::move(found.mapped()));
        }
    }
    if (task) {
        fire(task);
    }
}

void DispatchMainQueue::run()
{
    {
        const std::lock_guard lock(mutex_);
        kept_ = tasks_.size();
        while (!stopping_ && calls_ < kept_) { // those that an earlier run left came to nothing
            callForTask();
        }
    }
    const CurrentQueue current(
        this); // also of what the system calls on this thread by itself: its own ports and stores
    while (!isStopping()) {
        ground_->serve();
    }
    const std::lock_guard lock(mutex_);
    stopping_ = false;
}

void DispatchMainQueue::stop()
{
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    // From the queue's own side: before serve() has begun it would be lost.
    dispatchAsync(native(), [ground = ground_] { ground->leave(); });
}

bool DispatchMainQueue::isStopping() const
{
    const std::lock_guard lock(mutex_);
    return stopping_;
}

bool DispatchMainQueue::mayFireNow() const
{
    const std::lock_guard lock(mutex_);
    return !stopping_ && kept_ == 0;
}

void DispatchMainQueue::close()
{
    std::deque<Task> last; // both go outside the lock: what the tasks hold may post
    std::map<std::uint64_t, Task> lastDelayed;
    const std::lock_guard lock(mutex_);
    closed_ = true;
    kept_ = 0;
    last.swap(tasks_);
    lastDelayed.swap(delayed_);
}

DispatchSerialQueue::DispatchSerialQueue(
    std::shared_ptr<const DispatchGround> ground, std::shared_ptr<DispatchMainQueue> main, std::string label)
    : DispatchQueue(std::move(ground), std::move(label))
    , main_(std::move(main))
    , queue_(dispatch_queue_create(this->label().c_str(), DISPATCH_QUEUE_SERIAL))
{
}

void DispatchSerialQueue::post(Task task)
{
    if (closed_) {
        return;
    }
    dispatchAsync(queue_, [self = shared_from_this(), task = std::move(task)]() mutable {
        self->perform([&] {
            if (!self->closed_) {
                task();
            }
            task = nullptr; // what it held goes on this queue too
        });
    });
}

void DispatchSerialQueue::runAndWait(const Task& task)
{
    assert(!isCurrent());
    dispatchSync(queue_, [&] {
        if (!closed_) {
            perform(task);
        }
    });
}

void DispatchSerialQueue::fire(const std::shared_ptr<TaskSlot>& task)
{
    if (!closed_) {
        perform([&] { task->run(); });
    }
}

void DispatchSerialQueue::drain()
{
    dispatchSync(queue_, [] {});
}

} // namespace meridal
