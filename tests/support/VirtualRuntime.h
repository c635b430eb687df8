// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Runtime.h"

#include <cstdint>
#include <map>
#include <vector>

namespace meridal {

/// A Runtime without threads whose time moves only when told: ten minutes pass in a millisecond, and two runs are alike.
/// Every queue runs on the calling thread; tasks that are due at the same moment run in the order they were posted.
/// A timer's leeway is not used: it fires at its exact moment.
/// A task may let time pass itself, to stand for slow work: meanwhile the other queues are served and its own is not.
class VirtualRuntime final : public Runtime {
public:
    explicit VirtualRuntime(double wallTime = 1'700'000'000.0);
    ~VirtualRuntime() override;

    /// Runs every task that is due now, and those they post, without letting time pass.
    void runDue();
    /// Lets time pass and runs every task and timer at its exact moment.
    void advance(double seconds);
    /// Lets time pass at one stroke, as on an overloaded machine: what fell due meanwhile runs late, once.
    void jump(double seconds);
    /// Steps the wall clock; the clock that cannot step goes on as before. Nothing runs.
    void stepWallClock(double seconds);
    /// Puts the machine to sleep: the wall clock goes on, the other stands still unless told that it counts sleep
    /// (macOS). Nothing runs.
    void sleepMachine(double seconds, bool monotonicCountsSleep = false);
    /// Delivers a signal to its watches.
    void raise(int signal);
    /// Reports a descriptor as readable to its watches.
    void makeReadable(int descriptor);

    double wallTime() const override { return monotonic_ + wallAhead_; }
    double monotonicTime() const override { return monotonic_; }
    double sleptTime() const override { return slept_; }
    Queue& mainQueue() override;
    std::shared_ptr<Queue> makeSerialQueue(std::string label) override;
    void postGlobal(Task task) override;
    std::unique_ptr<Timer> startTimer(Queue& queue, TimerSchedule schedule, Task task) override;
    void after(double seconds, Task task) override;
    std::unique_ptr<Watch> watchSignal(int signal, Task task) override;
    std::unique_ptr<Watch> watchReadable(int descriptor, Task task) override;
    void run() override; ///< runs what is due, then from timer to timer, until stop() or nothing is left
    void stop() override { stopped_ = true; }

private:
    class SerialQueue;
    class RunningTimer;
    struct TimerState;
    struct WatchList;
    struct Due {
        std::shared_ptr<SerialQueue> queue;
        Task task;
    };

    void schedule(double when, std::shared_ptr<SerialQueue> queue, Task task);
    bool isRunning(const Queue& queue) const;
    void arm(const std::shared_ptr<TimerState>& timer);
    void fire(const std::shared_ptr<TimerState>& timer);
    void report(const WatchList& watches, int key);
    bool runNext(double until);

    double monotonic_ = 1000; // a machine that booted a while ago
    double wallAhead_;        // wall clock minus the other, s
    double slept_ = 0;
    std::uint64_t nextNumber_ = 0;
    std::map<std::pair<double, std::uint64_t>, Due> due_; // by moment, then by order of posting
    std::shared_ptr<SerialQueue> main_;
    std::shared_ptr<SerialQueue> global_;
    std::shared_ptr<WatchList> signals_;
    std::shared_ptr<WatchList> descriptors_;
    std::vector<const Queue*> running_; // innermost last
    bool stopped_ = false;
};

} // namespace meridal
