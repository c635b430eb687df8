// SPDX-License-Identifier: Apache-2.0
#include "tests/support/VirtualRuntime.h"

#include "base/DeadlineTable.h"
#include "base/TimerGrid.h"

#include <algorithm>
#include <cassert>
#include <limits>
#include <utility>

namespace meridal {

class VirtualRuntime::SerialQueue final : public Queue, public std::enable_shared_from_this<SerialQueue> {
public:
    SerialQueue(VirtualRuntime& runtime, std::string label) : runtime_(runtime), label_(std::move(label)) { }

    void post(Task task) override { runtime_.schedule(runtime_.monotonic_, shared_from_this(), std::move(task)); }

    void runAndWait(const Task& task) override
    {
        assert(!runtime_.isRunning(*this)); // it would wait for ever
        runWhatWaits();
        run(task);
    }

    bool isCurrent() const override { return !runtime_.running_.empty() && runtime_.running_.back() == this; }
    const std::string& label() const override { return label_; }

    void run(const Task& task)
    {
        runtime_.running_.push_back(this);
        task();
        runtime_.running_.pop_back();
    }

private:
    /// Runs what was posted here before, as a waiting caller of a real queue would see it.
    void runWhatWaits()
    {
        const auto isReady = [this, end = runtime_.nextNumber_](const auto& entry) {
            const auto& [when, number] = entry.first;
            return entry.second.queue.get() == this && when <= runtime_.monotonic_ && number < end;
        };
        for (auto next = std::find_if(runtime_.due_.begin(), runtime_.due_.end(), isReady); next != runtime_.due_.end();
             next = std::find_if(runtime_.due_.begin(), runtime_.due_.end(), isReady)) {
            const Due due = std::move(next->second);
            runtime_.due_.erase(next);
            run(due.task);
        }
    }

    VirtualRuntime& runtime_;
    std::string label_;
};

struct VirtualRuntime::TimerState {
    SerialQueue* queue = nullptr;
    TimerSchedule schedule;
    double next = 0;
    std::shared_ptr<Task> task;
    bool cancelled = false;
};

class VirtualRuntime::RunningTimer final : public Timer {
public:
    explicit RunningTimer(std::shared_ptr<TimerState> state) : state_(std::move(state)) { }
    ~RunningTimer() override
    {
        state_->cancelled = true;
        state_->task.reset();
    }

private:
    std::shared_ptr<TimerState> state_;
};

struct VirtualRuntime::WatchList {
    struct Entry {
        int key = 0;
        std::shared_ptr<Task> task;
    };
    std::map<std::uint64_t, Entry> entries;
};

VirtualRuntime::VirtualRuntime(double wallTime)
    : wallAhead_(wallTime - monotonic_)
    , main_(std::make_shared<SerialQueue>(*this, "main"))
    , global_(std::make_shared<SerialQueue>(*this, "global"))
    , signals_(std::make_shared<WatchList>())
    , descriptors_(std::make_shared<WatchList>())
{
}

VirtualRuntime::~VirtualRuntime()
{
    // What the tasks hold may post when it goes; after a few rounds only an endless chain would be left.
    for (int round = 0; round < 100 && !due_.empty(); ++round) {
        std::exchange(due_, {}).clear();
    }
}

bool VirtualRuntime::isRunning(const Queue& queue) const
{
    return &queue != global_.get() && std::find(running_.begin(), running_.end(), &queue) != running_.end();
}

void VirtualRuntime::schedule(double when, std::shared_ptr<SerialQueue> queue, Task task)
{
    due_.emplace(std::pair(when, nextNumber_++), Due{std::move(queue), std::move(task)});
}

/// Runs the first task that is due by then and whose queue is free. Time moves to its moment, never back.
bool VirtualRuntime::runNext(double until)
{
    const auto next =
        std::find_if(due_.begin(), due_.end(), [this](const auto& entry) { return !isRunning(*entry.second.queue); });
    // Sums of tenths come out a hair above the round moment they stand for; the hair does not count.
    if (next == due_.end() || next->first.first > until + 1e-9) {
        return false;
    }
    monotonic_ = std::max(monotonic_, std::min(next->first.first, until));
    const Due due = std::move(next->second);
    due_.erase(next);
    due.queue->run(due.task);
    return true;
}

void VirtualRuntime::runDue()
{
    while (runNext(monotonic_)) { }
}

void VirtualRuntime::advance(double seconds)
{
    const double until = monotonic_ + seconds;
    while (runNext(until)) { }
    monotonic_ = std::max(monotonic_, until); // a task may have let more time pass
}

void VirtualRuntime::jump(double seconds)
{
    monotonic_ += seconds;
    runDue();
}

void VirtualRuntime::stepWallClock(double seconds) { wallAhead_ += seconds; }

void VirtualRuntime::sleepMachine(double seconds, bool monotonicCountsSleep)
{
    (monotonicCountsSleep ? monotonic_ : wallAhead_) += seconds;
    slept_ += seconds;
}

/// Posts the tasks of one key's watches; a watch that ends before its task ran takes it along.
void VirtualRuntime::report(const WatchList& watches, int key)
{
    for (const auto& [number, entry] : watches.entries) {
        if (entry.key == key) {
            main_->post([weak = std::weak_ptr(entry.task)] {
                if (const auto task = weak.lock()) {
                    (*task)();
                }
            });
        }
    }
    runDue();
}

void VirtualRuntime::raise(int signal) { report(*signals_, signal); }

void VirtualRuntime::makeReadable(int descriptor) { report(*descriptors_, descriptor); }

Queue& VirtualRuntime::mainQueue() { return *main_; }

std::shared_ptr<Queue> VirtualRuntime::makeSerialQueue(std::string label)
{
    return std::make_shared<SerialQueue>(*this, std::move(label));
}

void VirtualRuntime::postGlobal(Task task) { global_->post(std::move(task)); }

void VirtualRuntime::arm(const std::shared_ptr<TimerState>& timer)
{
    schedule(timer->next, timer->queue->shared_from_this(), [this, weak = std::weak_ptr(timer)] {
        if (const auto state = weak.lock(); state && !state->cancelled) {
            fire(state);
        }
    });
}

void VirtualRuntime::fire(const std::shared_ptr<TimerState>& timer)
{
    const auto task = timer->task; // the task may destroy its timer
    if (timer->schedule.interval > 0) {
        timer->next = nextInRhythm(timer->next, timer->schedule.interval, monotonic_);
        arm(timer);
    }
    (*task)();
}

std::unique_ptr<Timer> VirtualRuntime::startTimer(Queue& queue, TimerSchedule schedule, Task task)
{
    auto state = std::make_shared<TimerState>();
    state->queue = static_cast<SerialQueue*>(&queue);
    state->schedule = schedule;
    state->next = firstFire(monotonic_, schedule);
    state->task = std::make_shared<Task>(std::move(task));
    arm(state);
    return std::make_unique<RunningTimer>(std::move(state));
}

void VirtualRuntime::after(double seconds, Task task)
{
    schedule(monotonic_ + std::max(seconds, 0.0), main_, std::move(task));
}

namespace {

/// Removes its entry from a watch list when it goes.
template <typename List>
class ListWatch final : public Watch {
public:
    ListWatch(std::shared_ptr<List> list, std::uint64_t number) : list_(std::move(list)), number_(number) { }
    ~ListWatch() override { list_->entries.erase(number_); }

private:
    std::shared_ptr<List> list_;
    std::uint64_t number_;
};

} // namespace

std::unique_ptr<Watch> VirtualRuntime::watchSignal(int signal, Task task)
{
    const auto number = nextNumber_++;
    signals_->entries[number] = {signal, std::make_shared<Task>(std::move(task))};
    return std::make_unique<ListWatch<WatchList>>(signals_, number);
}

std::unique_ptr<Watch> VirtualRuntime::watchReadable(int descriptor, Task task)
{
    const auto number = nextNumber_++;
    descriptors_->entries[number] = {descriptor, std::make_shared<Task>(std::move(task))};
    return std::make_unique<ListWatch<WatchList>>(descriptors_, number);
}

void VirtualRuntime::run()
{
    while (!stopped_ && runNext(std::numeric_limits<double>::infinity())) { }
    stopped_ = false;
}

} // namespace meridal
