// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Runtime.h"
#include "base/TaskSlot.h"
#include "platform/macos/kernel/DispatchQueues.h"

#include <dispatch/dispatch.h>

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

namespace meridal {

/// A dispatch source that calls a function on a queue, until it is destroyed. An event may be on its way then, and comes.
class DispatchSource {
public:
    /// `ended` runs on the queue, once the source neither calls `event` any more nor uses the handle.
    DispatchSource(dispatch_source_type_t type, std::uintptr_t handle, std::shared_ptr<DispatchQueue> queue, Task event,
        Task ended = {});
    ~DispatchSource();
    DispatchSource(const DispatchSource&) = delete;
    DispatchSource& operator=(const DispatchSource&) = delete;

    dispatch_source_t native() const { return source_; }
    void start() { dispatch_resume(source_); }

private:
    struct Calls;

    dispatch_source_t source_;
};

/// A moment of the clock on which timers are armed, as both sides know it. What is computed from one such moment falls on
/// one grid to the nanosecond, which "now" read twice does not.
struct DispatchEpoch {
    double uptime; ///< s
    dispatch_time_t time;
};

std::unique_ptr<Timer> makeDispatchTimer(std::shared_ptr<DispatchQueue> queue, const DispatchEpoch& epoch, double now,
    const TimerSchedule& schedule, Task task);

std::unique_ptr<Watch> makeDescriptorWatch(std::shared_ptr<DispatchMainQueue> queue, int descriptor, Task task);

/// Watches on signals. A source of libdispatch's own kind is registered some time after it was asked for, what arrives before
/// is lost, and its signal has to be ignored, which the programs that this one starts would inherit. So a handler writes what
/// arrives into a pipe. The actions of signals are the process's: of several of these objects the newest hears.
class DispatchSignals {
public:
    explicit DispatchSignals(std::shared_ptr<DispatchMainQueue> queue) : queue_(std::move(queue)) { }
    std::unique_ptr<Watch> watch(int signal, Task task);

private:
    struct Watchers;

    void start();

    const std::shared_ptr<DispatchMainQueue> queue_;
    std::shared_ptr<Watchers> watchers_;
    std::unique_ptr<DispatchSource> source_;
};

} // namespace meridal
