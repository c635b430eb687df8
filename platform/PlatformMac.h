// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/MachineInfo.h"

#include <optional>
#include <string>
#include <vector>

namespace meridal {

struct Context;

/// The machine that the daemon runs on, and what is special about its model. Immutable once made.
/// What other systems ask of the class is asked of the current platform here (PlatformController::currentPlatform()).
class PlatformMac {
public:
    explicit PlatformMac(Context& context);
    virtual ~PlatformMac() = default;
    PlatformMac(const PlatformMac&) = delete;
    PlatformMac& operator=(const PlatformMac&) = delete;

    /// The model identifier, "Unknown" when the machine does not tell.
    std::string identifier() const;
    /// For people. The identifier, where no better name is known.
    virtual std::string name() const { return identifier(); }
    /// Which of several machines of one model this is, and its name. 0 and empty where there is one kind only.
    virtual int variation() const { return 0; }
    virtual std::string variationName() const { return {}; }

    std::optional<std::string> serial() const { return serial_; }

    std::optional<std::string> cpu() const;
    std::optional<double> memory() const; ///< bytes

    /// Keys of the sensors to show before anybody has chosen some. None for a model we know nothing about.
    virtual std::vector<std::string> defaultSensorKeys() const { return {}; }
    /// What the model calls a fan, by its number; empty to use what the SMC itself says.
    virtual std::optional<std::string> nameForFan(int fan) const;
    /// Whether all fans follow one setting.
    virtual bool usesSyncedFans() const { return false; }

    // Of the interface, and called by nothing here
    std::string boardID() const { return boardID_; } ///< empty when the machine does not tell
    /// "aa:bb:cc:dd:ee:ff" of the first network interface of its own.
    std::optional<std::string> networkHardwareAdress() const;
    /// When the machine was made, where the serial number says so; 0 otherwise.
    int manufactureWeek() const { return manufactureWeek_; }
    int manufactureYear() const { return manufactureYear_; }
    int cpuCount() const;                   ///< processors the system schedules on
    int cpuCoreCount() const;               ///< the same: every hardware thread counts as a core
    int cpuPhysicalCoreCount() const;       ///< cores, however many threads each runs
    std::optional<double> cpuSpeed() const; ///< Hz
    std::string osVersion() const;          ///< for people
    bool hideIntergratedGraphics() const { return hideIntergratedGraphics_; }
    bool ignoreGraphicsControl() const { return ignoreGraphicsControl_; }
    bool disableFanControl() const { return disableFanControl_; }

protected:
    bool hideIntergratedGraphics_ = false;
    bool ignoreGraphicsControl_ = false;
    bool disableFanControl_ = false;

private:
    void decodeSerial();

    const MachineInfo& machine_;
    std::optional<std::string> serial_;
    std::string boardID_;
    int manufactureWeek_ = 0;
    int manufactureYear_ = 0;
};

} // namespace meridal
