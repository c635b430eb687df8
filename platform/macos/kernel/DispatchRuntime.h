// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Runtime.h"
#include "platform/macos/kernel/DispatchGround.h"

#include <memory>
#include <string>

namespace meridal {

/// The runtime on libdispatch. Monotonic time goes on while the machine sleeps; timers are armed on the uptime clock and so
/// rest with it. One at a time in a process, whose main dispatch queue and signals it has. Destroy it on the main thread
/// when run() has returned; tasks that still wait are dropped, those in progress waited for, but for slow queues'.
class DispatchRuntime final : public Runtime {
public:
    explicit DispatchRuntime(std::unique_ptr<DispatchGround> ground);
    ~DispatchRuntime() override;
    DispatchRuntime(const DispatchRuntime&) = delete;
    DispatchRuntime& operator=(const DispatchRuntime&) = delete;

    double wallTime() const override;
    double monotonicTime() const override;
    double sleptTime() const override;
    Queue& mainQueue() override;
    std::shared_ptr<Queue> makeSerialQueue(std::string label) override;
    std::shared_ptr<Queue> makeSlowQueue(std::string label) override;
    void postGlobal(Task task) override;
    std::unique_ptr<Timer> startTimer(Queue& queue, TimerSchedule schedule, Task task) override;
    void after(double seconds, Task task) override;
    std::unique_ptr<Watch> watchSignal(int signal, Task task) override;
    std::unique_ptr<Watch> watchReadable(int descriptor, Task task) override;
    void run() override;
    void stop() override;

private:
    struct Core;
    std::unique_ptr<Core> core_;
};

} // namespace meridal
