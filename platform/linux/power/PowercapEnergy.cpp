// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/power/PowercapEnergy.h"

#include "platform/linux/kernel/RootFolder.h"

#include <fstream>
#include <utility>

namespace meridal {

namespace {

std::optional<std::uint64_t> microjoulesIn(const std::filesystem::path& file)
{
    std::ifstream stream(file);
    std::uint64_t figure = 0;
    return stream >> figure ? std::optional(figure) : std::nullopt;
}

} // namespace

PowercapEnergy::PowercapEnergy(const std::filesystem::path& root)
{
    const RootFolder folder(root);
    for (const std::string& zone : folder.list("sys/class/powercap")) {
        const std::string path = "sys/class/powercap/" + zone;
        // Zones within a package ("core", "dram") and the platform's own ("psys") are counted beside or within it.
        if (!folder.readLine(path + "/name").value_or("").starts_with("package-")) {
            continue;
        }
        const auto now = microjoulesIn(folder.path(path + "/energy_uj"));
        const auto range = leadingNumber(folder.readLine(path + "/max_energy_range_uj").value_or(""));
        if (now) {
            packages_.push_back({folder.path(path + "/energy_uj"), range.value_or(0), *now});
        }
    }
}

std::optional<double> PowercapEnergy::joules()
{
    if (packages_.empty()) {
        return std::nullopt;
    }
    for (Package& package : packages_) {
        const auto now = microjoulesIn(package.file);
        if (!now) {
            continue; // the next reading makes up for it
        }
        const std::uint64_t before = std::exchange(package.latest, *now);
        if (*now >= before) {
            sum_ += *now - before;
        } else if (package.range >= before) {
            sum_ += package.range - before + *now;
        }
    }
    constexpr double microjoulesPerJoule = 1e6;
    return static_cast<double>(sum_) / microjoulesPerJoule;
}

} // namespace meridal
