// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/linux/kernel/RootFolder.h"
#include "platform/linux/sensors/SensorsExpression.h"

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace meridal {

/// What the owner of the machine has said of its sensors in lm-sensors' configuration (sensors.conf(5)): names for
/// channels, channels to leave out, formulas for voltage dividers. Later statements win over earlier ones. "set"
/// statements are orders to the hardware and not ours; "bus" statements are not supported.
class SensorsConfig {
public:
    /// The files of a machine: etc/sensors3.conf, else etc/sensors.conf, and everything in etc/sensors.d.
    static SensorsConfig read(const RootFolder& root);

    /// Adds the statements of one file. What it does not understand it skips, line by line.
    void add(std::string_view text);

    /// By chip ("nct6775-isa-0290") and channel ("in3"). Absent when nothing is said.
    std::optional<std::string> label(std::string_view chip, std::string_view channel) const;
    bool isIgnored(std::string_view chip, std::string_view channel) const;
    const SensorsExpression* formula(std::string_view chip, std::string_view channel) const;

private:
    /// One "chip" statement and what follows it.
    struct Section {
        std::vector<std::string> patterns;
        std::map<std::string, std::string, std::less<>> labels;
        std::map<std::string, bool, std::less<>> ignored;
        std::map<std::string, SensorsExpression, std::less<>> formulas;
        bool concerns(std::string_view chip) const;
    };
    void addStatement(std::string_view line, Section*& current);
    template <typename Map>
    const typename Map::mapped_type* last(Map Section::*map, std::string_view chip, std::string_view channel) const;

    std::vector<Section> sections_;
    std::size_t statements_ = 0;
};

/// Whether a name fits a pattern in which * stands for anything.
bool matchesPattern(std::string_view name, std::string_view pattern);

} // namespace meridal
