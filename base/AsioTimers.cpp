// SPDX-License-Identifier: Apache-2.0
#include "base/AsioTimers.h"

#include "base/TimerGrid.h"

#include <asio/post.hpp>

#include <algorithm>
#include <chrono>
#include <utility>

namespace meridal {

namespace {

using SteadySeconds = std::chrono::duration<double>;

/// A delay that the clock's arithmetic can carry: no NaN, nothing below zero, a human life at most.
double sensible(double seconds) { return seconds > 0 ? std::min(seconds, 3e9) : 0; }

/// Rounded up, so that a deadline has passed when the system timer ends.
std::chrono::steady_clock::time_point steadyTimePoint(double seconds)
{
    return std::chrono::steady_clock::time_point(
        std::chrono::ceil<std::chrono::steady_clock::duration>(SteadySeconds(seconds)));
}

} // namespace

double steadySeconds() { return SteadySeconds(std::chrono::steady_clock::now().time_since_epoch()).count(); }

struct AsioTimers::Entry {
    Id id = 0;
    std::weak_ptr<Queue> queue;
    double interval; ///< s; 0 = fires once
    double leeway;   ///< s
    TaskSlot task;
    bool posted =
        false; ///< a fire is on its way to the queue and serves for all that come meanwhile; guarded by mutex_

    Entry(std::weak_ptr<Queue> target, const TimerSchedule& schedule, Task run)
        : queue(std::move(target))
        , interval(sensible(schedule.interval))
        , leeway(sensible(schedule.leeway))
        , task(std::move(run))
    {
    }
};

AsioTimers::Handle AsioTimers::start(std::weak_ptr<Queue> queue, TimerSchedule schedule, Task task)
{
    auto timer = std::make_shared<Entry>(std::move(queue), schedule, std::move(task));
    schedule.first = sensible(schedule.first);
    schedule.interval = timer->interval;
    const double deadline = firstFire(steadySeconds(), schedule);
    const std::lock_guard lock(mutex_);
    timer->id = ++lastId_;
    waiting_.emplace(timer->id, timer);
    table_.add(timer->id, deadline, timer->leeway);
    // Earlier for the new one, or later for its company: either way the system timer is set anew.
    if (const auto wakeAt = table_.wakeTime(); wakeAt != wakeAt_) {
        wakeAt_ = wakeAt;
        asio::post(loop_.context(), [this]() noexcept { sleep(); });
    }
    return timer;
}

void AsioTimers::cancel(const Handle& timer)
{
    {
        const std::lock_guard lock(mutex_);
        waiting_.erase(timer->id); // not the last reference
        table_.remove(timer->id);
        // The system timer stays as it is: one idle wake-up is cheaper than a system call for every cancelled timer.
    }
    timer->task.clear();
}

void AsioTimers::close()
{
    std::map<Id, Handle> last; // goes outside the lock: what the tasks hold may cancel other timers
    const std::lock_guard lock(mutex_);
    last.swap(waiting_);
    table_ = {};
}

void AsioTimers::sleep()
{
    const std::lock_guard lock(mutex_);
    wakeAt_ = table_.wakeTime();
    if (!wakeAt_) {
        return;
    }
    wake_.expires_at(steadyTimePoint(*wakeAt_)); // ends the wait before
    wake_.async_wait([this](const asio::error_code& error) noexcept {
        if (!error) {
            wake();
        }
    });
}

void AsioTimers::wake()
{
    for (const auto& timer : takeFires(steadySeconds())) {
        post(timer);
    }
    sleep();
}

/// The timers that are due, in order, without those whose last fire has yet to run; repeating ones are entered anew.
std::vector<AsioTimers::Handle> AsioTimers::takeFires(double now)
{
    std::vector<Handle> fires;
    const std::lock_guard lock(mutex_);
    for (const auto& [id, deadline] : table_.takeDue(now)) {
        const auto found = waiting_.find(id);
        const Handle timer = found->second;
        if (timer->interval > 0) {
            table_.add(id, nextInRhythm(deadline, timer->interval, now), timer->leeway);
        } else {
            waiting_.erase(found);
        }
        if (!std::exchange(timer->posted, true)) {
            fires.push_back(timer);
        }
    }
    return fires;
}

void AsioTimers::post(const Handle& timer)
{
    const auto queue = timer->queue.lock();
    if (!queue) {
        return;
    }
    queue->post([this, timer] {
        {
            const std::lock_guard lock(mutex_);
            timer->posted = false;
        }
        timer->task.run();
    });
}

} // namespace meridal
