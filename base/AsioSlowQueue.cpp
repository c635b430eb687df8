// SPDX-License-Identifier: Apache-2.0
#include "base/AsioSlowQueue.h"

#include "base/AsioMainLoop.h"
#include "base/CurrentQueue.h"

#include <cassert>
#include <future>
#include <thread>
#include <utility>

namespace meridal {

AsioSlowQueue::AsioSlowQueue(std::shared_ptr<AsioMainLoop> loop, std::string label)
    : loop_(std::move(loop)), label_(std::move(label))
{
}

bool AsioSlowQueue::isCurrent() const { return CurrentQueue::get() == this; }

void AsioSlowQueue::post(Task task)
{
    const std::lock_guard lock(mutex_);
    if (closed_) {
        return;
    }
    line_.push_back(std::move(task));
    if (!std::exchange(served_, true)) {
        std::thread([self = shared_from_this()] { self->serve(); }).detach();
    }
}

void AsioSlowQueue::runAndWait(const Task& task)
{
    assert(!isCurrent());
    auto done = std::make_shared<std::promise<void>>();
    std::future<void> finished = done->get_future();
    // The promise goes with a task that is dropped, which ends the wait too.
    post([&task, done = std::move(done)] {
        task();
        done->set_value();
    });
    finished.wait();
}

void AsioSlowQueue::close()
{
    std::deque<Task> last; // goes outside the lock: what the tasks hold may post
    const std::lock_guard lock(mutex_);
    closed_ = true;
    last.swap(line_);
}

void AsioSlowQueue::serve()
{
    const CurrentQueue current(this);
    std::unique_lock lock(mutex_);
    while (!line_.empty()) {
        Task task = std::move(line_.front());
        line_.pop_front();
        lock.unlock();
        task();
        task = nullptr; // what it held goes on this queue too
        lock.lock();
    }
    served_ = false;
}

} // namespace meridal
