// SPDX-License-Identifier: Apache-2.0
#include "base/ThreadPool.h"

#include <asio/post.hpp>
#include <asio/thread_pool.hpp>

#include <mutex>
#include <utility>

namespace meridal {

struct ThreadPool::State {
    const std::size_t threads;
    std::mutex mutex;
    std::unique_ptr<asio::thread_pool> pool;
    bool closed = false;
};

ThreadPool::ThreadPool(std::size_t threads) : state_(new State{.threads = threads, .mutex = {}, .pool = {}}) { }

ThreadPool::~ThreadPool() { close(); }

void ThreadPool::post(Task task)
{
    const std::lock_guard lock(state_->mutex);
    if (state_->closed) {
        return;
    }
    if (!state_->pool) {
        state_->pool = std::make_unique<asio::thread_pool>(state_->threads);
    }
    asio::post(*state_->pool, [task = std::move(task)]() noexcept { task(); });
}

void ThreadPool::close()
{
    std::unique_ptr<asio::thread_pool> last; // its tasks go outside the lock: what they hold may post
    {
        const std::lock_guard lock(state_->mutex);
        state_->closed = true;
        last.swap(state_->pool);
    }
    if (last) {
        last->stop();
        last->join();
    }
}

} // namespace meridal
