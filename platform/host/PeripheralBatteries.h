// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace meridal {

enum class PeripheralKind { Other, Keyboard, Mouse, Trackpad, Headset, GameController, Tablet, Phone };

/// The battery of something that is connected to the machine, as it is now.
struct PeripheralBattery {
    std::string
        key; ///< its hardware address ("aa:bb:cc:dd:ee:ff"), else its serial number, else the system's name for it
    std::string name; ///< for people
    PeripheralKind kind = PeripheralKind::Other;
    std::optional<double> percent = {}; ///< 0 to 100; absent for devices that tell a level or nothing
    std::string level = {}; ///< "Critical", "Low", "Normal", "High", "Full"; empty where the device does not tell
    std::optional<bool> charging = {};
    bool bluetooth = false; ///< told by the system's Bluetooth service
};

/// Batteries of mice, keyboards, headsets and the like. Main queue only. Asking may talk to the devices, so ask only for
/// somebody who wants to know.
/// macOS: the I/O registry and the accessories among the power sources. Linux: supplies of scope "Device", and BlueZ.
class PeripheralBatteries {
public:
    using Reply = std::function<void(std::vector<PeripheralBattery>)>;

    virtual ~PeripheralBatteries() = default;
    /// Everything but Logitech's own receivers. Replies once, on the main queue, at once or within seconds.
    virtual void bluetooth(Reply reply) = 0;
    /// Devices on Logitech's receivers, as they are or as they were when bluetooth() last replied.
    virtual std::vector<PeripheralBattery> logitech() = 0;
};

} // namespace meridal
