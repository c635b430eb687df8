// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Runtime.h"
#include "platform/host/ClockSource.h"
#include "platform/linux/kernel/SystemBus.h"

#include <functional>
#include <memory>
#include <optional>

struct sd_bus_message;
struct sd_bus_slot;

namespace meridal {

/// The kernel's STA_UNSYNC. Whatever sets the clock by hand sets it, too; only a time service clears it. Whom the kernel
/// does not let ask, as in a unit that may not touch clocks, asks systemd-timedated's property NTPSynchronized, which it
/// takes from the same place. The bus starts that service for a question, so there are few: nobody waits for an answer, and a
/// "yes" counts for hours, until the clock steps.
class LinuxClockSource final : public ClockSource {
public:
    /// Absent where the question is refused.
    using Kernel = std::function<std::optional<bool>()>;

    LinuxClockSource(Runtime& runtime, std::shared_ptr<SystemBus> bus);
    LinuxClockSource(Runtime& runtime, std::shared_ptr<SystemBus> bus, Kernel kernel);
    ~LinuxClockSource() override;

    bool isSynchronised() override;

private:
    void ask(double now);
    void answered(sd_bus_message& reply);
    /// Of the clock that never steps, s, with what was slept.
    double steadyTime() const { return runtime_.monotonicTime() + runtime_.sleptTime(); }

    Runtime& runtime_;
    const std::shared_ptr<SystemBus> bus_;
    const Kernel kernel_;
    sd_bus_slot* call_ = nullptr; ///< the latest question, until it is answered
    bool isKept_ = false;         ///< the latest answer about the clock as it stands
    double ahead_ = 0;            ///< the wall clock of the other one, s
    double pause_ = 0;            ///< s, to the question after an answer that is no "yes"
    double nextQuestion_ = 0;     ///< of the clock that never steps
};

} // namespace meridal
