// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/kernel/DispatchGround.h"

#import <Foundation/Foundation.h>
#include <mach/mach_time.h>

#include <cstdint>

namespace meridal {

namespace {

double machTick()
{
    mach_timebase_info_data_t base{};
    mach_timebase_info(&base);
    return static_cast<double>(base.numer) / static_cast<double>(base.denom) / 1e9;
}

double machSeconds(std::uint64_t ticks)
{
    static const double tick = machTick();
    return static_cast<double>(ticks) * tick;
}

class RunLoopGround final : public DispatchGround {
public:
    void serve() override
    {
        @autoreleasepool {
            CFRunLoopRun();
        }
    }
    void leave() override { CFRunLoopStop(CFRunLoopGetMain()); }
    void perform(const Task& task) const override
    {
        @autoreleasepool {
            task();
        }
    }
    double continuousTime() const override { return machSeconds(mach_continuous_time()); }
    double uptime() const override { return machSeconds(mach_absolute_time()); }
};

} // namespace

std::unique_ptr<DispatchGround> makeRunLoopGround() { return std::make_unique<RunLoopGround>(); }

} // namespace meridal
