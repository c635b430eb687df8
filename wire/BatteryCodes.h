// SPDX-License-Identifier: Apache-2.0
#pragma once

/// The numbers that stand for words in what is said and recorded of batteries.

namespace meridal {

/// What a battery powers. The numbers go over the wire.
enum class BatteryType : int {
    Internal = 0,
    UPS = 1,
    Keyboard = 2,
    Mouse = 3,
    Trackpad = 4,
    Headset = 5,
    GameController = 6,
    Tablet = 7,
    Phone = 8,
    Other = 9,
};

/// What a battery does. The numbers go over the wire.
enum class BatteryState : int {
    Charged = 0, ///< on AC and full
    Charging = 1,
    Draining = 2,    ///< also on AC, from an adapter that gives too little
    NotCharging = 3, ///< on AC
    Optimized = 5,   ///< on AC, held back by the system to spare the battery
};

/// Where the machine takes its power from. The numbers go over the wire and into the files.
enum class BatterySource : int { Unknown = -1, Battery = 0, AC = 1 };

enum class BatteryCondition : int { Poor = 1, Fair = 2, Good = 3, CheckBattery = 4, PermanentFailure = 5 };

/// What stands in the place of minutes.
namespace batteryTime {
constexpr int unknown = -1; ///< or being calculated
constexpr int charged = -2;
constexpr int noFigure = -3; ///< on AC without a time to full
} // namespace batteryTime

} // namespace meridal
