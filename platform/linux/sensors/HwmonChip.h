// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/SensorSource.h"
#include "platform/linux/kernel/RootFolder.h"

#include <array>
#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace meridal {

/// What a file of a channel tells.
enum class HwmonFile : std::size_t {
    Input,
    Low,
    High,
    Critical,
    LowCritical,
    // Flags, 1 while something is wrong
    Alarm,
    LowAlarm,
    HighAlarm,
    CriticalAlarm,
    LowCriticalAlarm,
    EmergencyAlarm,
    CapAlarm,
    Count
};
constexpr std::size_t hwmonFileCount = static_cast<std::size_t>(HwmonFile::Count);
constexpr bool isFlag(HwmonFile file) { return file >= HwmonFile::Alarm && file < HwmonFile::Count; }

/// One thing that a chip measures. File names are in the chip's folder, empty where there is no such file.
struct HwmonChannel {
    SensorKind kind = SensorKind::Temperature;
    std::string name;   ///< "temp1", as lm-sensors calls it
    std::string label;  ///< what the driver calls it, raw; empty when it does not
    std::string ownKey; ///< the SMC key that it is on a machine with a real SMC; empty elsewhere
    std::array<std::string, hwmonFileCount> files; ///< by HwmonFile
    std::string fault;                             ///< holds 1 while the input means nothing
    bool operator==(const HwmonChannel&) const = default;
};

/// A hardware monitoring chip, as the kernel's Documentation/hwmon/sysfs-interface describes them.
struct HwmonChip {
    std::string folder;                 ///< of its files, below the root
    std::string device;                 ///< the folder of what it belongs to, below the root
    std::string prefix;                 ///< the driver's name for it: "nct6775"
    std::string name;                   ///< lm-sensors' name for it: "nct6775-isa-0290"
    std::string disk;                   ///< that it is part of: "nvme0n1", "sda"; empty for all other chips
    std::string identity;               ///< where it sits, without anything that the order of probing decides
    std::vector<HwmonChannel> channels; ///< by kind and number
    bool operator==(const HwmonChip&) const = default;
};

/// Where each hwmon entry leads, by its name: tells cheaply whether chips came or went.
std::map<std::string, std::string> hwmonEntries(const RootFolder& root);

/// All chips with anything to measure, by their names. Reads names and labels, but asks no chip for a figure.
std::vector<HwmonChip> readHwmonChips(const RootFolder& root);

/// Whether the kernel has a driver for a real SMC here.
bool hasRealSMC(const RootFolder& root);

/// How many of a channel's units are one degree Celsius, V, A, W, rpm or percent.
double unitsOf(SensorKind kind);

} // namespace meridal
