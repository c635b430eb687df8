// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/Disks.h"

#include <optional>
#include <string>

namespace meridal {

/// The model that a disk tells: vendor and product, shortened for disks that Apple brands. Absent without one.
std::optional<std::string> modelOfDisk(const DiskRecord& disk);

/// The serial number that a disk tells, or else what it hangs on. Absent where there is none but blanks.
std::optional<std::string> serialOfDisk(const DiskRecord& disk);

} // namespace meridal
