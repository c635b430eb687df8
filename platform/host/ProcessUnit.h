// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace meridal {

enum class ProcessUnitKind : std::uint8_t {
    Shared,      ///< a login session, a service manager, nothing at all: those in it have nothing else in common
    Application, ///< a service, or an application that the desktop started
    Container,   ///< a container or a virtual machine: whatever runs in it is part of it
};

/// What the system keeps a process in together with others. Linux: a systemd unit or a container, by control group.
struct ProcessUnit {
    std::uint32_t number = 0; ///< as long as the source lives no other unit has it; 0: the host has no such thing
    ProcessUnitKind kind = ProcessUnitKind::Shared;
    bool operator==(const ProcessUnit&) const = default;
};

} // namespace meridal
