// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/linux/kernel/RootFolder.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace meridal {

/// One entry of /sys/class/power_supply, as it was at one moment: its "uevent" file holds all that the driver tells, read
/// in one go; the attributes' own files are read for what that lacks. What the driver does not have is absent. The
/// kernel's Documentation/ABI/testing/sysfs-class-power tells the meaning and the units, which are micro-units; drivers
/// that are known to use others are put right.
class PowerSupply {
public:
    PowerSupply(const RootFolder& root, std::string name);
    /// One that consists of its "uevent" alone.
    PowerSupply(std::string name, std::string_view uevent);

    const std::string& name() const { return name_; }
    /// The battery of something connected to the machine, such as a mouse, that is there and answers.
    bool isPeripheralBattery() const { return type_ == "Battery" && ofDevice_ && present_ && figure("online") != 0; }
    bool isInternalBattery() const { return type_ == "Battery" && !ofDevice_ && present_; }
    bool isUPS() const { return type_ == "UPS" && !ofDevice_ && present_; }
    /// An adapter: mains, USB or wireless.
    bool isExternal() const
    {
        return !ofDevice_ && (type_ == "Mains" || type_.starts_with("USB") || type_ == "Wireless");
    }
    /// Whether an adapter gives power. Batteries have no such file.
    bool isOnline() const { return figure("online").value_or(0) != 0; }

    std::optional<std::string> text(std::string_view file) const;
    std::optional<double> figure(std::string_view file) const;
    /// "Charging", "Discharging", "Not charging", "Full" or "Unknown".
    const std::string& status() const { return status_; }

    std::optional<double> percent() const;
    std::optional<double> millivolts() const;
    /// Positive while charging, negative while discharging, whatever sign the driver uses.
    std::optional<double> milliamperes() const;
    /// A charge in mAh: charge_NAME, or energy_NAME divided by the voltage that the pack was designed for.
    std::optional<double> milliampereHours(std::string_view name) const;
    /// An energy in mWh: energy_NAME, or charge_NAME times that voltage, which unlike the present one does not change with
    /// the load.
    std::optional<double> milliwattHours(std::string_view name) const;
    /// Minutes until empty or full at the present rate. Absent when there is no rate.
    std::optional<double> minutesToEmpty() const;
    std::optional<double> minutesToFull() const;

private:
    void prepare();
    std::optional<double> volts() const;
    std::optional<double> nominalVolts() const;
    std::optional<double> charge(std::string_view name) const;
    std::optional<double> energy(std::string_view name) const;
    std::optional<double> current() const;
    std::optional<double> power() const;
    std::optional<double> hoursOf(std::optional<double> charge, std::optional<double> energy) const;

    const RootFolder* root_ = nullptr;
    std::string name_;
    std::map<std::string, std::string, std::less<>> attributes_; ///< of "uevent", by the names of their files
    double chargeUnit_ = 1;                                      ///< µAh and µA in the driver's unit
    double energyUnit_ = 1;                                      ///< µWh and µW in the driver's unit
    std::string type_;
    std::string status_;
    bool ofDevice_ = false; ///< powers something connected to the machine, such as a mouse
    bool present_ = true;   ///< false for an empty bay
};

/// The attributes of a supply's "uevent", by the names of their files: POWER_SUPPLY_CYCLE_COUNT is "cycle_count".
std::map<std::string, std::string, std::less<>> supplyAttributes(std::string_view uevent);

enum class SuppliesOf { Machine, Devices };

/// The supplies of this machine, or those of the devices connected to it, by name. The former are read without waking
/// the latter: what such a device's driver does not know it asks the device for, which may take seconds.
std::vector<PowerSupply> powerSupplies(const RootFolder& root, SuppliesOf owner);

} // namespace meridal
