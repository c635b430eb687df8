// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

namespace meridal {

/// What the kernel keeps of how a process was started (KERN_PROCARGS2), for platform/formats/ProcArgs.h.
struct ArgumentArea {
    std::unique_ptr<char[]> bytes;
    std::string_view text; ///< of them; empty when the process has ended, has none or may not be asked
};

ArgumentArea readArgumentArea(std::int32_t pid);

} // namespace meridal
