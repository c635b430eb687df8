// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/ValueFwd.h"

#include <memory>
#include <string_view>

namespace meridal {

/// One thing in the I/O registry, macOS's tree of devices and drivers. Properties are read when they are asked for; what has
/// gone from the machine has none.
class RegistryEntry {
public:
    virtual ~RegistryEntry() = default;
    /// Null where it has none of that name.
    virtual Value property(std::string_view key) const = 0;
    /// The property of this entry, or of the first one below it that has it. Null when none has.
    virtual Value searchChildren(std::string_view key) const = 0;
    /// What it hangs on; null at the root.
    virtual std::shared_ptr<const RegistryEntry> parent() const = 0;
};

using RegistryEntryPtr = std::shared_ptr<const RegistryEntry>;

} // namespace meridal
