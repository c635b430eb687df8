// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/NetworkInterfaces.h"

#include <map>
#include <optional>
#include <string>

namespace meridal {

/// What SystemConfiguration knows of the machine's network hardware. Slow to read: it walks the I/O registry.
class NetworkHardware {
public:
    void read();
    /// Adds what was read, and what the name tells of an interface that is no hardware.
    void describe(InterfaceRecord& record) const;

private:
    struct Port {
        InterfaceKind kind = InterfaceKind::Other;
        std::string displayName;
        std::optional<HardwareAddress> permanentAddress;
    };

    std::map<std::string, Port> ports_; ///< by BSD name
};

} // namespace meridal
