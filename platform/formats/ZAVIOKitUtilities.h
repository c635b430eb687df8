// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/formats/RegistryEntry.h"

#include <string_view>

namespace meridal {

/// Walks over the I/O registry.
class ZAVIOKitUtilities {
public:
    /// A property of the nearest parent that has it, at most `limit` levels up. Null when none has.
    static Value searchForKeyInParents(std::string_view key, int limit, const RegistryEntry& object);
};

} // namespace meridal
