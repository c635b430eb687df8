// SPDX-License-Identifier: Apache-2.0
#include "base/AsioMainLoop.h"

#include "base/CurrentQueue.h"
#include "base/PostAndWait.h"

#include <asio/post.hpp>

#include <cassert>
#include <memory>
#include <utility>

namespace meridal {

bool AsioMainLoop::isCurrent() const { return CurrentQueue::get() == this; }

void AsioMainLoop::post(Task task)
{
    const std::lock_guard lock(mutex_);
    if (closed_) {
        return;
    }
    tasks_.push_back(std::move(task));
    asio::post(context_, [this]() noexcept { runFirst(); });
}

void AsioMainLoop::runFirst()
{
    Task task;
    {
        const std::lock_guard lock(mutex_);
        if (tasks_.empty()) {
            return;
        }
        task = std::move(tasks_.front());
        tasks_.pop_front();
    }
    const CurrentQueue current(this);
    task();
    task = nullptr; // what it held goes on this queue too
}

void AsioMainLoop::runAndWait(const Task& task)
{
    assert(!isCurrent());
    postAndWait(*this, task);
}

void AsioMainLoop::run()
{
    context_.run();
    context_.restart();
}

void AsioMainLoop::close()
{
    std::deque<Task> last; // goes outside the lock: what the tasks hold may post
    const std::lock_guard lock(mutex_);
    closed_ = true;
    last.swap(tasks_);
}

} // namespace meridal
