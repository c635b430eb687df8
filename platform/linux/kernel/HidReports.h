// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>

namespace meridal {

/// A report to be had of a HID device (HIDIOCGFEATURE, HIDIOCGINPUT), as the daemon asks for it and the program meridal-disks
/// gets it, over a SOCK_SEQPACKET socket.
struct HidQuestion {
    std::uint32_t isFeature = 0;
    std::uint32_t report = 0; ///< its number, the first byte of the data; 0 when the device does not number them
    std::uint32_t length = 0; ///< bytes of data wanted, with that first byte; at most those of the answer
};

struct HidBytes {
    std::int32_t error = 0; ///< errno of the open or the ioctl; 0 = it has answered
    std::uint32_t length = 0;
    std::array<std::uint8_t, 4096> data = {};
};

/// Asks a device by its node until the other end leaves or sends what is no question. Waits as long as the device takes.
void serveHidReports(int channel, const std::filesystem::path& node);

} // namespace meridal
