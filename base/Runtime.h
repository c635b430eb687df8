// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>

namespace meridal {

using Task = std::function<void()>;

/// Runs tasks one after another, in the order posted. A task that throws ends the program: catch what you expect.
class Queue {
public:
    virtual ~Queue() = default;
    /// Runs the task later, never inside this call. Any thread may post.
    virtual void post(Task task) = 0;
    /// Runs the task after everything posted before and returns when it has run. Not from this queue itself, and not
    /// from a queue that this one waits for.
    virtual void runAndWait(const Task& task) = 0;
    /// Whether the caller runs on this queue.
    virtual bool isCurrent() const = 0;
    virtual const std::string& label() const = 0;
};

/// When a timer fires, in seconds of the clock that cannot step.
struct TimerSchedule {
    double first = 0;    ///< from now to the first fire
    double interval = 0; ///< between fires after that; 0 = fires once
    double leeway = 0;   ///< how much later a fire may come, so that several timers share one wake-up
    /// The first fire is moved by up to a second, or half an interval if that is less, to where those of other such timers
    /// are (base/TimerGrid.h). For what repeats and may come at any phase; intervals of whole steps stay together.
    bool onGrid = false;
};

/// A running timer. Destroying it stops it; done on its own queue, the task does not run again. A task may destroy the
/// timer that runs it.
class Timer {
public:
    virtual ~Timer() = default;
};

/// A watch on a signal or a descriptor. Destroying it, on the queue it reports to, ends it.
class Watch {
public:
    virtual ~Watch() = default;
};

/// Clocks, queues, timers and the main loop. Nothing else in the program asks the system for the time or starts a
/// thread.
class Runtime {
public:
    virtual ~Runtime() = default;

    /// Seconds since 1970-01-01 00:00 UTC. May step either way at any moment: for labels, never for durations.
    virtual double wallTime() const = 0;
    /// Seconds from an arbitrary origin that never step. Linux: CLOCK_MONOTONIC, which stops while the machine
    /// sleeps. macOS: mach_continuous_time, which goes on.
    virtual double monotonicTime() const = 0;
    /// Seconds that this machine has slept since it booted, as the kernel counts them. Linux: CLOCK_BOOTTIME less
    /// CLOCK_MONOTONIC. macOS: mach_continuous_time less mach_absolute_time. Two readings awake may differ by the
    /// moment between the two clocks.
    virtual double sleptTime() const = 0;

    virtual Queue& mainQueue() = 0;
    virtual std::shared_ptr<Queue> makeSerialQueue(std::string label) = 0;
    /// A serial queue for calls that may hang in the system for minutes: it holds up no other queue, and the end of the
    /// program does not wait for it. Its tasks touch nothing but what is theirs, and post their results.
    virtual std::shared_ptr<Queue> makeSlowQueue(std::string label) { return makeSerialQueue(std::move(label)); }
    /// Runs the task on some thread of the pool, concurrently with everything.
    virtual void postGlobal(Task task) = 0;

    /// Starts a timer whose task runs on the queue. Fires that were missed (overload, sleep) are not made up for: one
    /// late fire, then the old rhythm. The queue must outlive the timer.
    [[nodiscard]] virtual std::unique_ptr<Timer> startTimer(Queue& queue, TimerSchedule schedule, Task task) = 0;
    /// Runs the task on the main queue once the seconds have passed. Wrap it in a Lifetime when its object may die.
    virtual void after(double seconds, Task task) = 0;

    /// Runs the task on the main queue for each arrival of the signal, whose default action is switched off.
    [[nodiscard]] virtual std::unique_ptr<Watch> watchSignal(int signal, Task task) = 0;
    /// Runs the task on the main queue while the descriptor can be read. The descriptor stays the caller's and
    /// must outlive the watch.
    [[nodiscard]] virtual std::unique_ptr<Watch> watchReadable(int descriptor, Task task) = 0;

    /// Serves the main queue on the calling thread until stop().
    virtual void run() = 0;
    /// Ends run() after the task in progress, or the next run() at once when none is in progress. Any thread may call
    /// it.
    virtual void stop() = 0;
};

} // namespace meridal
