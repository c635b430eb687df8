#pragma once

#include "platform/host/SensorChannels.h"
#include "platform/linux/RootFolder.h"

#include <map>
#include <string>
#include <vector>

namespace meridal {

/// One thing that a chip measures. File names are in the chip's folder, empty where there is no such file.
struct HwmonChannel {
    SensorChannelKind kind = SensorChannelKind::Temperature;
    std::string name;   ///< "temp1", as lm-sensors calls it
    std::string label;  ///< what the driver calls it, raw; empty when it does not
    std::string ownKey; ///< the SMC key that it is on a machine with a real SMC; empty elsewhere
    std::string input;
    std::string fault; ///< holds 1 while the input means nothing
    std::string low;
    std::string high;
    std::string critical;
    bool operator==(const HwmonChannel&) const = default;
};

/// A hardware monitoring chip, as the kernel's Documentation/hwmon/sysfs-interface describes them.
struct HwmonChip {
    std::string folder;                 ///< of its files, below the root
    std::string prefix;                 ///< the driver's name for it: "nct6775"
    std::string name;                   ///< lm-sensors' name for it: "nct6775-isa-0290"
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

/// How many of a channel's units are one degree Celsius, V, A, W or rpm.
double unitsOf(SensorChannelKind kind);

} // namespace meridal
