// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

namespace meridal {

class RootFolder;

/// What this system runs inside of, by the names that systemd-detect-virt prints: a container's manager first, as that is
/// what shows here, then a hypervisor. Told by files that container managers leave, DMI, the device tree, the hypervisor's
/// own folder in /sys, the processor's signature leaf (of the real root only) and flags. Absent on real hardware.
std::optional<std::string> readVirtualisation(const RootFolder& root);

} // namespace meridal
