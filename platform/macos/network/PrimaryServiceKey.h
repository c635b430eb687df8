// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/NetworkInterfaces.h"
#include "platform/macos/kernel/CFRef.h"

#include <SystemConfiguration/SystemConfiguration.h>

#include <optional>
#include <vector>

namespace meridal {

/// The primary service as the dynamic store has it, that of IPv4 before that of IPv6.
class PrimaryServiceKey {
public:
    PrimaryServiceKey();

    /// Absent where there is none, and while its interface is not among these.
    std::optional<PrimaryService> read(const std::vector<InterfaceRecord>& interfaces) const;

private:
    CFRef<SCDynamicStoreRef> store_;
};

} // namespace meridal
