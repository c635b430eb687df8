// SPDX-License-Identifier: Apache-2.0
#include "base/SerialQueue.h"

#include "base/CurrentQueue.h"
#include "base/ThreadPool.h"

#include <cassert>
#include <utility>

namespace meridal {

namespace {
/// Tasks that one visit to the pool runs before it lets other queues have the thread.
constexpr int tasksPerVisit = 64;
} // namespace

SerialQueue::SerialQueue(std::shared_ptr<ThreadPool> pool, std::string label)
    : pool_(std::move(pool)), label_(std::move(label))
{
}

bool SerialQueue::isCurrent() const { return CurrentQueue::get() == this; }

void SerialQueue::post(Task task)
{
    std::unique_lock lock(mutex_);
    if (!closed_) {
        line_.push_back({.task = std::move(task)});
        schedule(std::move(lock));
    }
}

/// Asks for a thread when there is work and nobody has it in hand. Lets go of the lock first: a thread that wakes to find it
/// taken would sleep and wake a second time.
void SerialQueue::schedule(std::unique_lock<std::mutex> lock)
{
    if (line_.empty() || served_ || scheduled_ || line_.front().caller != nullptr) {
        return;
    }
    scheduled_ = true;
    const auto pool = pool_;
    Task serve = [self = shared_from_this()] {
        self->serveOnPool();
    }; // whoever runs the task first may let go of the queue
    lock.unlock();
    pool->post(std::move(serve));
}

void SerialQueue::serveOnPool()
{
    std::unique_lock lock(mutex_);
    scheduled_ = false;
    if (served_) {
        return; // a waiting caller came first and will see to the rest
    }
    served_ = true;
    for (int count = 0; count < tasksPerVisit && !line_.empty() && line_.front().caller == nullptr; ++count) {
        runFirst(lock);
    }
    served_ = false;
    turn_.notify_all();
    schedule(std::move(lock));
}

void SerialQueue::runAndWait(const Task& task) noexcept
{
    assert(!isCurrent());
    const void* const self = &task;
    std::unique_lock lock(mutex_);
    line_.push_back({.task = {}, .caller = self});
    for (bool done = false; !done;) {
        turn_.wait(lock, [&] { return !served_ && (line_.front().caller == nullptr || line_.front().caller == self); });
        served_ = true;
        while (line_.front().caller == nullptr) {
            runFirst(lock);
        }
        if (line_.front().caller == self) {
            line_.pop_front();
            lock.unlock();
            const CurrentQueue current(this);
            task();
            lock.lock();
            done = true;
        }
        served_ = false;
        turn_.notify_all();
    }
    schedule(std::move(lock));
}

void SerialQueue::close()
{
    std::deque<Entry> last; // goes outside the lock: what the tasks hold may post
    const std::lock_guard lock(mutex_);
    closed_ = true;
    last.swap(line_);
    for (const auto& entry : last) {
        if (entry.caller != nullptr) {
            line_.push_back({.task = {}, .caller = entry.caller});
        }
    }
    turn_.notify_all();
}

/// Takes the first task out of the line and runs it with the lock released.
void SerialQueue::runFirst(std::unique_lock<std::mutex>& lock)
{
    Task task = std::move(line_.front().task);
    line_.pop_front();
    lock.unlock();
    {
        const CurrentQueue current(this);
        task();
        task = nullptr; // what it held goes on this queue too
    }
    lock.lock();
}

} // namespace meridal
