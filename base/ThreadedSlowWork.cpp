// SPDX-License-Identifier: Apache-2.0
#include "base/ThreadedSlowWork.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

namespace meridal {

namespace {

/// How long tasks wait behind one that may hang before another thread takes them, in seconds.
constexpr double takeOver = 0.01;

using Clock = std::chrono::steady_clock;

Clock::duration duration(double seconds)
{
    return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

} // namespace

struct ThreadedSlowWork::State {
    std::mutex mutex;
    std::condition_variable posted; ///< a task waits, or it is over
    std::condition_variable ended;  ///< a task has ended
    std::deque<Task> waiting;
    std::size_t threads = 0;
    std::size_t idle = 0;
    std::size_t mostThreads = 0;
    bool over = false;

    /// What each thread does. Leaves when another one is idle: hung tasks that come back leave no crowd behind.
    static void serve(const std::shared_ptr<State>& state)
    {
        std::unique_lock lock(state->mutex);
        for (;;) {
            if (state->waiting.empty() && state->idle > 0) {
                break;
            }
            ++state->idle;
            state->posted.wait(lock, [&] { return state->over || !state->waiting.empty(); });
            --state->idle;
            if (state->over) {
                break;
            }
            Task task = std::move(state->waiting.front());
            state->waiting.pop_front();
            lock.unlock();
            task();
            task = nullptr; // what it holds goes before anybody hears that it has ended
            lock.lock();
            state->ended.notify_all();
        }
        --state->threads;
    }

    /// Starts a thread unless one is idle. Called with the mutex held.
    static void addThread(const std::shared_ptr<State>& state)
    {
        if (state->idle > 0 || state->threads >= state->mostThreads) {
            return;
        }
        try {
            std::thread([state] { serve(state); }).detach();
            ++state->threads;
        } catch (const std::system_error&) {
            // No thread to be had now: the tasks wait for those there are.
        }
    }
};

ThreadedSlowWork::ThreadedSlowWork(std::size_t mostThreads) : state_(std::make_shared<State>())
{
    state_->mostThreads = mostThreads;
}

ThreadedSlowWork::~ThreadedSlowWork()
{
    std::deque<Task> dropped; // goes outside the lock
    const std::lock_guard lock(state_->mutex);
    state_->over = true;
    dropped.swap(state_->waiting);
    state_->posted.notify_all();
}

void ThreadedSlowWork::post(Task task)
{
    const std::lock_guard lock(state_->mutex);
    state_->waiting.push_back(std::move(task));
    if (state_->threads == 0) {
        State::addThread(state_);
    }
    state_->posted.notify_one();
}

bool ThreadedSlowWork::wait(const std::function<bool()>& condition, double seconds)
{
    const Clock::time_point deadline = Clock::now() + duration(seconds);
    std::unique_lock lock(state_->mutex);
    while (!condition()) {
        const Clock::time_point now = Clock::now();
        if (now >= deadline) {
            return false;
        }
        const bool heard =
            state_->ended.wait_until(lock, std::min(deadline, now + duration(takeOver))) == std::cv_status::no_timeout;
        if (!heard && !state_->waiting.empty()) {
            State::addThread(state_);
        }
    }
    return true;
}

} // namespace meridal
