#include "base/VirtualRuntime.h"

#include <algorithm>
#include <cassert>
#include <cmath>

namespace meridal {

class VirtualRuntime::SerialQueue final : public Queue, public std::enable_shared_from_this<SerialQueue> {
public:
    SerialQueue(VirtualRuntime& runtime, std::string label) : runtime_(runtime), label_(std::move(label)) { }

    void post(Task task) override { runtime_.schedule(runtime_.monotonic_, shared_from_this(), std::move(task)); }

    void runAndWait(const Task& task) override
    {
        assert(!isCurrent());
        drain();
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
    void drain()
    {
        const auto isReady = [this](const auto& entry) {
            return entry.second.queue.get() == this && entry.first.first <= runtime_.monotonic_;
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
    : wall_(wallTime)
    , main_(std::make_shared<SerialQueue>(*this, "main"))
    , global_(std::make_shared<SerialQueue>(*this, "global"))
    , signals_(std::make_shared<WatchList>())
    , descriptors_(std::make_shared<WatchList>())
{
}

VirtualRuntime::~VirtualRuntime() = default;

void VirtualRuntime::schedule(double when, std::shared_ptr<SerialQueue> queue, Task task)
{
    due_.emplace(std::pair(when, nextNumber_++), Due{std::move(queue), std::move(task)});
}

bool VirtualRuntime::runNext(double until)
{
    const auto next = due_.begin();
    if (next == due_.end() || next->first.first > until) {
        return false;
    }
    const double passed = next->first.first - monotonic_;
    if (passed > 0) {
        monotonic_ += passed;
        wall_ += passed;
    }
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
    const double wallUntil = wall_ + seconds;
    const double before = wall_ - monotonic_;
    while (runNext(until)) { }
    // A task may have stepped the wall clock; keep its step and drop the rounding of many small additions.
    const double stepped = (wall_ - monotonic_) - before;
    monotonic_ = until;
    wall_ = wallUntil + (std::abs(stepped) > 1e-3 ? stepped : 0);
}

void VirtualRuntime::jump(double seconds)
{
    monotonic_ += seconds;
    wall_ += seconds;
    runDue();
}

void VirtualRuntime::stepWallClock(double seconds) { wall_ += seconds; }

void VirtualRuntime::sleepMachine(double seconds, bool monotonicCountsSleep)
{
    wall_ += seconds;
    if (monotonicCountsSleep) {
        monotonic_ += seconds;
    }
}

void VirtualRuntime::raise(int signal)
{
    for (const auto& [number, entry] : signals_->entries) {
        if (entry.key == signal) {
            main_->post([task = std::weak_ptr(entry.task)] {
                if (const auto alive = task.lock()) {
                    (*alive)();
                }
            });
        }
    }
    runDue();
}

void VirtualRuntime::makeReadable(int descriptor)
{
    for (const auto& [number, entry] : descriptors_->entries) {
        if (entry.key == descriptor) {
            main_->post([task = std::weak_ptr(entry.task)] {
                if (const auto alive = task.lock()) {
                    (*alive)();
                }
            });
        }
    }
    runDue();
}

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
        do {
            timer->next += timer->schedule.interval;
        } while (timer->next <= monotonic_);
        arm(timer);
    }
    (*task)();
}

std::unique_ptr<Timer> VirtualRuntime::startTimer(Queue& queue, TimerSchedule schedule, Task task)
{
    auto state = std::make_shared<TimerState>();
    state->queue = static_cast<SerialQueue*>(&queue);
    state->schedule = schedule;
    state->next = monotonic_ + schedule.first;
    state->task = std::make_shared<Task>(std::move(task));
    arm(state);
    return std::make_unique<RunningTimer>(std::move(state));
}

void VirtualRuntime::after(double seconds, Task task) { schedule(monotonic_ + seconds, main_, std::move(task)); }

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
    stopped_ = false;
    while (!stopped_ && runNext(INFINITY)) { }
}

} // namespace meridal
