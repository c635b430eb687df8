// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Runtime.h"

#include <memory>

namespace meridal {

/// The Runtime on standalone Asio: the main queue on the thread that calls run(), everything else on a pool of three
/// threads that starts with the first task given to it, but for slow queues, which have a thread each while they work.
/// One system timer serves all timers: it sleeps as long as every leeway allows, so that timers with the same interval share their wake-ups.
/// Destroy it on the main thread when run() has returned; tasks that still wait are dropped.
class AsioRuntime final : public Runtime {
public:
    AsioRuntime();
    ~AsioRuntime() override;
    AsioRuntime(const AsioRuntime&) = delete;
    AsioRuntime& operator=(const AsioRuntime&) = delete;

    double wallTime() const override;
    double monotonicTime() const override;
    double sleptTime() const override;
    Queue& mainQueue() override;
    std::shared_ptr<Queue> makeSerialQueue(std::string label) override;
    std::shared_ptr<Queue> makeSlowQueue(std::string label) override;
    void postGlobal(Task task) override;
    std::unique_ptr<Timer> startTimer(Queue& queue, TimerSchedule schedule, Task task) override;
    /// With a leeway of a tenth of the delay, at most 0.2 s.
    void after(double seconds, Task task) override;
    std::unique_ptr<Watch> watchSignal(int signal, Task task) override;
    std::unique_ptr<Watch> watchReadable(int descriptor, Task task) override;
    void run() override;
    void stop() override;

private:
    struct Core;
    std::shared_ptr<Core> core_;
};

} // namespace meridal
