// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Runtime.h"

#include <memory>
#include <string>

namespace meridal {

/// The runtime on libdispatch. The main queue is served by the main thread's run loop, which run() enters: distributed
/// notifications and the I/O registry's sources live on that loop, and it drains the main dispatch queue as well.
/// Monotonic time is mach_continuous_time, which goes on while the machine sleeps; timers are armed on the uptime clock
/// and so rest with it.
class DispatchRuntime final : public Runtime {
public:
    DispatchRuntime();
    ~DispatchRuntime() override;

    double wallTime() const override;
    double monotonicTime() const override;
    double sleptTime() const override;
    Queue& mainQueue() override;
    std::shared_ptr<Queue> makeSerialQueue(std::string label) override;
    void postGlobal(Task task) override;
    std::unique_ptr<Timer> startTimer(Queue& queue, TimerSchedule schedule, Task task) override;
    void after(double seconds, Task task) override;
    std::unique_ptr<Watch> watchSignal(int signal, Task task) override;
    std::unique_ptr<Watch> watchReadable(int descriptor, Task task) override;
    void run() override;
    void stop() override;

private:
    class DispatchQueue;

    std::shared_ptr<DispatchQueue> main_;
};

} // namespace meridal
