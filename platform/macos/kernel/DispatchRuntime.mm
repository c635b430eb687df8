// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/kernel/DispatchRuntime.h"

#include "base/TimerGrid.h"

#import <Foundation/Foundation.h>
#include <dispatch/dispatch.h>
#include <mach/mach_time.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <csignal>
#include <utility>

namespace meridal {

namespace {

/// Every task runs in an autorelease pool of its own: what a seam leaves behind is freed at once.
void perform(const Task& task)
{
    @autoreleasepool {
        task();
    }
}

std::uint64_t nanoseconds(double seconds)
{
    constexpr double longest = 9e18; // some 285 years, and still a signed number
    return static_cast<std::uint64_t>(std::clamp(seconds * 1e9, 0.0, longest));
}

double machTick()
{
    mach_timebase_info_data_t base{};
    mach_timebase_info(&base);
    return static_cast<double>(base.numer) / static_cast<double>(base.denom) / 1e9;
}

/// A task that a source runs until its owner goes. The owner may go inside the task: the source's handler holds it.
struct SourceTask {
    Task task;
    std::atomic<bool> ended = false;

    void fire() const
    {
        if (!ended.load()) {
            perform(task);
        }
    }
};

template <typename Base>
class SourceOwner final : public Base {
public:
    SourceOwner(dispatch_source_t source, std::shared_ptr<SourceTask> task)
        : source_(source), task_(std::move(task)) { }
    ~SourceOwner() override
    {
        task_->ended = true;
        if (source_) {
            dispatch_source_cancel(source_);
        }
    }
    SourceOwner(const SourceOwner&) = delete;
    SourceOwner& operator=(const SourceOwner&) = delete;

private:
    dispatch_source_t source_;
    std::shared_ptr<SourceTask> task_;
};

std::unique_ptr<Watch> watchMain(dispatch_source_t source, Task task)
{
    auto shared = std::make_shared<SourceTask>();
    shared->task = std::move(task);
    if (source) {
        dispatch_source_set_event_handler(source, ^{ shared->fire(); });
        dispatch_resume(source);
    }
    return std::make_unique<SourceOwner<Watch>>(source, std::move(shared));
}

} // namespace

class DispatchRuntime::DispatchQueue final : public Queue {
public:
    DispatchQueue(dispatch_queue_t queue, std::string label) : queue_(queue), label_(std::move(label))
    {
        dispatch_queue_set_specific(queue_, this, this, nullptr);
    }
    /// Its key may be the address of another queue's object later on.
    ~DispatchQueue() override { dispatch_queue_set_specific(queue_, this, nullptr, nullptr); }
    DispatchQueue(const DispatchQueue&) = delete;
    DispatchQueue& operator=(const DispatchQueue&) = delete;

    void post(Task task) override
    {
        dispatch_async(queue_, ^{ perform(task); });
    }

    void runAndWait(const Task& task) override
    {
        const Task* const borrowed = &task; // it outlives the call, which waits
        dispatch_sync(queue_, ^{ perform(*borrowed); });
    }

    bool isCurrent() const override { return dispatch_get_specific(this) == this; }
    const std::string& label() const override { return label_; }
    dispatch_queue_t native() const { return queue_; }

private:
    dispatch_queue_t queue_;
    std::string label_;
};

DispatchRuntime::DispatchRuntime() : main_(std::make_shared<DispatchQueue>(dispatch_get_main_queue(), "main")) { }

DispatchRuntime::~DispatchRuntime() = default;

double DispatchRuntime::wallTime() const { return CFAbsoluteTimeGetCurrent() + kCFAbsoluteTimeIntervalSince1970; }

double DispatchRuntime::monotonicTime() const
{
    static const double tick = machTick();
    return static_cast<double>(mach_continuous_time()) * tick;
}

double DispatchRuntime::sleptTime() const
{
    const std::uint64_t awake = mach_absolute_time();
    return static_cast<double>(mach_continuous_time() - awake) * machTick();
}

Queue& DispatchRuntime::mainQueue() { return *main_; }

std::shared_ptr<Queue> DispatchRuntime::makeSerialQueue(std::string label)
{
    dispatch_queue_t queue = dispatch_queue_create(label.c_str(), DISPATCH_QUEUE_SERIAL);
    return std::make_shared<DispatchQueue>(queue, std::move(label));
}

void DispatchRuntime::postGlobal(Task task)
{
    dispatch_async(dispatch_get_global_queue(QOS_CLASS_DEFAULT, 0), ^{ perform(task); });
}

std::unique_ptr<Timer> DispatchRuntime::startTimer(Queue& queue, TimerSchedule schedule, Task task)
{
    auto shared = std::make_shared<SourceTask>();
    shared->task = std::move(task);
    dispatch_queue_t native = static_cast<DispatchQueue&>(queue).native();
    dispatch_source_t source = dispatch_source_create(DISPATCH_SOURCE_TYPE_TIMER, 0, 0, native);
    if (source) {
        const std::uint64_t interval = schedule.interval > 0 ? nanoseconds(schedule.interval) : DISPATCH_TIME_FOREVER;
        // The grid is that of the clock which the timer is armed on: the other one's moves against it with each sleep.
        const double now = static_cast<double>(mach_absolute_time()) * machTick();
        const dispatch_time_t first =
            dispatch_time(DISPATCH_TIME_NOW, static_cast<std::int64_t>(nanoseconds(firstFire(now, schedule) - now)));
        dispatch_source_set_timer(source, first, interval, nanoseconds(schedule.leeway));
        dispatch_source_set_event_handler(source, ^{ shared->fire(); });
        dispatch_resume(source);
    }
    return std::make_unique<SourceOwner<Timer>>(source, std::move(shared));
}

void DispatchRuntime::after(double seconds, Task task)
{
    const dispatch_time_t when = dispatch_time(DISPATCH_TIME_NOW, static_cast<std::int64_t>(nanoseconds(seconds)));
    dispatch_after(when, dispatch_get_main_queue(), ^{ perform(task); });
}

std::unique_ptr<Watch> DispatchRuntime::watchSignal(int signal, Task task)
{
    std::signal(signal, SIG_IGN); // the source sees it all the same
    return watchMain(dispatch_source_create(DISPATCH_SOURCE_TYPE_SIGNAL, static_cast<std::uintptr_t>(signal), 0,
                         dispatch_get_main_queue()),
        std::move(task));
}

std::unique_ptr<Watch> DispatchRuntime::watchReadable(int descriptor, Task task)
{
    return watchMain(dispatch_source_create(DISPATCH_SOURCE_TYPE_READ, static_cast<std::uintptr_t>(descriptor), 0,
                         dispatch_get_main_queue()),
        std::move(task));
}

void DispatchRuntime::run()
{
    @autoreleasepool {
        CFRunLoopRun();
    }
}

void DispatchRuntime::stop()
{
    // From the loop's own side: a stop that comes before run() has entered the loop would be lost.
    dispatch_async(dispatch_get_main_queue(), ^{ CFRunLoopStop(CFRunLoopGetMain()); });
}

} // namespace meridal
