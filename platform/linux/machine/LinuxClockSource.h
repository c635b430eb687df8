// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/ClockSource.h"

namespace meridal {

/// The kernel's STA_UNSYNC. Whatever sets the clock by hand sets it, too; only a time service clears it.
class LinuxClockSource final : public ClockSource {
public:
    bool isSynchronised() override;
};

} // namespace meridal
