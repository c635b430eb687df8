// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Result.h"
#include "platform/linux/kernel/RootFolder.h"

#include <filesystem>

namespace meridal {

/// The radio switch of all Wi-Fi devices: /sys/class/rfkill tells, /dev/rfkill is told. Any queue.
class Rfkill {
public:
    explicit Rfkill(const std::filesystem::path& root) : folder_(root) { }

    /// Blocks all Wi-Fi when one of them is free, else frees them all.
    Result<void> toggle();

private:
    Result<void> block(bool blocked);

    RootFolder folder_;
};

} // namespace meridal
