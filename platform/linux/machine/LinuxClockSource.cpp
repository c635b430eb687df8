// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/machine/LinuxClockSource.h"

#include <sys/timex.h>
#include <systemd/sd-bus.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace meridal {

namespace {

constexpr double largestDrift = 2;        // s between two clocks that nobody has set meanwhile; a leap second is 1
constexpr double firstPause = 10;         // s
constexpr double longestTrust = 6 * 3600; // s; the kernel itself believes nine hours in a time service that is silent

std::optional<bool> askKernel()
{
    timex clock = {}; // no modes: changes nothing, and needs no right
    return ::adjtimex(&clock) >= 0 ? std::optional((clock.status & STA_UNSYNC) == 0) : std::nullopt;
}

} // namespace

LinuxClockSource::LinuxClockSource(Runtime& runtime, std::shared_ptr<SystemBus> bus)
    : LinuxClockSource(runtime, std::move(bus), askKernel)
{
}

/// Asks at once, so that there is an answer by the first record: after days without the daemon it decides whether the clock
/// is believed.
LinuxClockSource::LinuxClockSource(Runtime& runtime, std::shared_ptr<SystemBus> bus, Kernel kernel)
    : runtime_(runtime), bus_(std::move(bus)), kernel_(std::move(kernel))
{
    isSynchronised();
}

LinuxClockSource::~LinuxClockSource() { sd_bus_slot_unref(call_); }

bool LinuxClockSource::isSynchronised()
{
    if (const auto told = kernel_()) {
        return *told;
    }
    const double now = steadyTime();
    const double ahead = runtime_.wallTime() - now;
    if (std::abs(ahead - ahead_) > largestDrift) {
        ahead_ = ahead;
        isKept_ = false; // what was said was about another time
        pause_ = firstPause;
        nextQuestion_ = now;
    }
    if (now >= nextQuestion_) {
        ask(now);
    }
    return isKept_;
}

void LinuxClockSource::ask(double now)
{
    call_ = sd_bus_slot_unref(call_); // one that got lost with its connection
    nextQuestion_ = now + pause_;
    pause_ = std::min(pause_ * 2, longestTrust);
    if (!bus_->handle()) {
        isKept_ = false;
        return;
    }
    sd_bus_call_method_async(
        bus_->handle(), &call_, "org.freedesktop.timedate1", "/org/freedesktop/timedate1",
        "org.freedesktop.DBus.Properties", "Get",
        [](sd_bus_message* reply, void* self, sd_bus_error*) {
            static_cast<LinuxClockSource*>(self)->answered(*reply);
            return 0;
        },
        this, "ss", "org.freedesktop.timedate1", "NTPSynchronized");
    bus_->kick();
}

void LinuxClockSource::answered(sd_bus_message& reply)
{
    call_ = sd_bus_slot_unref(call_);
    int kept = 0;
    const bool isAnswer =
        sd_bus_message_is_method_error(&reply, nullptr) == 0 && sd_bus_message_read(&reply, "v", "b", &kept) >= 0;
    isKept_ = isAnswer && kept != 0;
    if (isKept_) {
        pause_ = firstPause;
        nextQuestion_ = steadyTime() + longestTrust;
    }
}

} // namespace meridal
