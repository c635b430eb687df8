// SPDX-License-Identifier: Apache-2.0
#include "platform/formats/ProcArgs.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

/// The argument area of any process, whose owner chose every byte of it.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view area(reinterpret_cast<const char*>(data), size);
    const auto path = meridal::executablePathOfProcArgs(area);
    if (path && (path->empty() || path->data() != area.data() + 4 || path->size() + 5 > area.size())) {
        std::abort();
    }
    return 0;
}
