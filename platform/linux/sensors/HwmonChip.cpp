// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/sensors/HwmonChip.h"

#include "base/Text.h"
#include "platform/linux/sensors/HwmonNames.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <filesystem>
#include <optional>
#include <set>
#include <tuple>

namespace meridal {

namespace {

constexpr const char* classFolder = "sys/class/hwmon";
constexpr std::size_t longestName = 64;    // a driver's or a channel's
constexpr std::size_t mostChannels = 1024; // of one chip
constexpr unsigned highestNumber = 9999;   // of a channel

struct KindOfFile {
    std::string_view prefix;
    SensorKind kind;
};
constexpr std::array<KindOfFile, 6> kinds = {{
    {"temp", SensorKind::Temperature},
    {"fan", SensorKind::Fan},
    {"in", SensorKind::Voltage},
    {"curr", SensorKind::Current},
    {"power", SensorKind::Power},
    {"humidity", SensorKind::Humidity},
}};
/// What comes after a channel's name in the names of its files, by HwmonFile.
constexpr std::array<std::string_view, hwmonFileCount> suffixes = {"_input", "_min", "_max", "_crit", "_lcrit",
    "_alarm", "_min_alarm", "_max_alarm", "_crit_alarm", "_lcrit_alarm", "_emergency_alarm", "_cap_alarm"};

std::filesystem::path realPath(const std::filesystem::path& path)
{
    std::error_code error;
    auto real = std::filesystem::canonical(path, error);
    return error ? std::filesystem::path() : real;
}

/// A device's path below sys/devices, or below the root for a tree that has no such folder.
std::filesystem::path belowDevices(const RootFolder& root, const std::filesystem::path& device)
{
    for (const char* base : {"sys/devices", ""}) {
        const auto below = device.lexically_relative(realPath(root.path(base)));
        if (!below.empty() && *below.begin() != "..") {
            return below;
        }
    }
    return device;
}

/// The channel number in "temp12_input" after "temp"; absent when it is no input of that kind.
std::optional<unsigned> channelNumber(std::string_view file, std::string_view prefix, std::string_view suffix)
{
    if (!file.starts_with(prefix) || !file.ends_with(suffix) || file.size() <= prefix.size() + suffix.size()) {
        return std::nullopt;
    }
    const std::string_view digits = file.substr(prefix.size(), file.size() - prefix.size() - suffix.size());
    unsigned number = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    const bool whole = error == std::errc() && end == digits.data() + digits.size();
    return whole && number <= highestNumber ? std::optional(number) : std::nullopt;
}

std::vector<HwmonChannel> readChannels(const RootFolder& root, const std::string& folder)
{
    const std::vector<std::string> list = root.list(folder);
    const std::set<std::string, std::less<>> files(list.begin(), list.end());
    const auto ifThere = [&](std::string file) { return files.contains(file) ? file : std::string(); };
    std::vector<HwmonChannel> channels;
    for (const KindOfFile& kind : kinds) {
        std::set<unsigned> numbers;
        for (const std::string& file : files) {
            auto number = channelNumber(file, kind.prefix, "_input");
            if (!number && kind.kind == SensorKind::Power) { // some chips know only a mean over some time
                number = channelNumber(file, kind.prefix, "_average");
            }
            if (number && channels.size() + numbers.size() < mostChannels) {
                numbers.insert(*number);
            }
        }
        for (const unsigned number : numbers) {
            const std::string name = std::string(kind.prefix) + std::to_string(number);
            HwmonChannel channel{.kind = kind.kind,
                .name = name,
                .label = root.readLine(folder + "/" + name + "_label").value_or("").substr(0, longestName),
                .ownKey = {},
                .files = {},
                .fault = ifThere(name + "_fault")};
            std::transform(suffixes.begin(), suffixes.end(), channel.files.begin(),
                [&](std::string_view suffix) { return ifThere(name + std::string(suffix)); });
            if (std::string& input = channel.files.front(); input.empty()) {
                input = name + "_average";
            }
            channels.push_back(std::move(channel));
        }
    }
    return channels;
}

bool isKey(std::string_view text)
{
    return text.size() == 4 && std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c <= '~'; });
}

/// The driver for Intel Macs labels a temperature with its key, and numbers fans from 1 where the SMC does from 0.
void takeKeysFromLabels(HwmonChip& chip)
{
    unsigned fan = 0;
    for (HwmonChannel& channel : chip.channels) {
        if (channel.kind == SensorKind::Temperature && isKey(channel.label)) {
            channel.ownKey = channel.label;
        } else if (channel.kind == SensorKind::Fan && fan < 10) {
            channel.ownKey = "F" + std::to_string(fan++) + "Ac";
        }
    }
}

/// The driver for Apple silicon has keys and labels from the device tree, one node a sensor.
void takeKeysFromDeviceTree(const RootFolder& root, HwmonChip& chip, const std::string& node)
{
    constexpr std::size_t longestLabel = 31; // the driver cuts them
    static const std::map<SensorKind, std::string_view> prefixes = {{SensorKind::Temperature, "temperature-"},
        {SensorKind::Fan, "fan-"}, {SensorKind::Voltage, "voltage-"}, {SensorKind::Current, "current-"},
        {SensorKind::Power, "power-"}, {SensorKind::Humidity, "humidity-"}};
    for (const std::string& name : root.list(node)) {
        const std::string sensor = node + "/" + name;
        const std::string key = root.readLine(sensor + "/apple,key-id").value_or("");
        const std::string label = root.readLine(sensor + "/label").value_or("").substr(0, longestLabel);
        if (!isKey(key) || label.empty()) {
            continue;
        }
        for (HwmonChannel& channel : chip.channels) {
            if (channel.ownKey.empty() && channel.label == label && name.starts_with(prefixes.at(channel.kind))) {
                channel.ownKey = key;
                break;
            }
        }
    }
}

/// The device that gives a chip its bus and address: the one behind it, or the nearest above that has a bus. A disk's
/// chip hangs from the controller's class device, which has none.
void nameChip(const RootFolder& root, HwmonChip& chip, std::filesystem::path device)
{
    const auto top = realPath(root.path(""));
    std::string subsystem;
    while (!device.empty() && device != top && device.has_relative_path()) {
        subsystem = realPath(device / "subsystem").filename().string();
        if (hwmon::isKnownBus(subsystem)) {
            break;
        }
        subsystem.clear();
        device = device.parent_path();
    }
    chip.name = hwmon::chipName(chip.prefix, subsystem, subsystem.empty() ? "" : device.filename().string());
}

std::optional<std::string> ataPortNumber(const std::filesystem::path& device, std::string_view ata)
{
    auto folder = device;
    while (folder.has_relative_path() && folder.filename() != ata) {
        folder = folder.parent_path();
    }
    return RootFolder(folder).readLine("ata_port/" + std::string(ata) + "/port_no");
}

/// Drivers that may have several devices put their own counter into the name: "iwlwifi_1", "mt7921_phy0",
/// "hidpp_battery_0". It goes by the order of probing.
std::string_view withoutCounter(std::string_view prefix)
{
    const std::size_t last = prefix.find_last_not_of("0123456789");
    if (last == std::string_view::npos || last == 0 || last + 1 == prefix.size()) {
        return prefix;
    }
    const std::string_view name = prefix.substr(0, last + 1);
    for (const std::string_view counter : {"_phy", "_"}) {
        if (name.size() > counter.size() && name.ends_with(counter)) {
            return name.substr(0, name.size() - counter.size());
        }
    }
    return prefix;
}

/// The disk that a chip is part of: below its controller (NVMe) or itself (drivetemp). A path of a disk that has several,
/// "nvme0c1n1", is part of "nvme0n1".
std::string diskOf(const RootFolder& root, const HwmonChip& chip)
{
    if (chip.prefix == "drivetemp") {
        const auto disks = root.list(chip.device + "/block");
        return disks.empty() ? "" : printable(disks.front());
    }
    for (const std::string& entry : chip.prefix == "nvme" ? root.list(chip.device) : std::vector<std::string>()) {
        const std::size_t disk = entry.find_last_of('n');
        const std::size_t path = std::min(entry.find('c'), disk);
        const bool isDisk = entry.starts_with("nvme") && disk > 4 && disk != std::string::npos
            && disk + 1 < entry.size() && entry.find_first_not_of("0123456789cn", 4) == std::string::npos;
        if (isDisk) {
            return entry.substr(0, path) + entry.substr(disk);
        }
    }
    return "";
}

std::optional<HwmonChip> readChip(const RootFolder& root, const std::string& entry)
{
    HwmonChip chip;
    chip.folder = std::string(classFolder) + "/" + entry;
    chip.device = chip.folder + "/device";
    auto name = root.readLine(chip.folder + "/name");
    if (!name) { // old drivers keep everything with the device
        chip.folder = chip.device;
        name = root.readLine(chip.folder + "/name");
    }
    if (!name) {
        return std::nullopt;
    }
    chip.prefix = name->substr(0, longestName);
    chip.channels = readChannels(root, chip.folder);
    if (chip.prefix == "applesmc") {
        takeKeysFromLabels(chip);
    } else if (chip.prefix.starts_with("macsmc")) {
        takeKeysFromDeviceTree(root, chip, chip.device + "/of_node");
    }
    nameChip(root, chip, realPath(root.path(chip.device)));
    chip.disk = diskOf(root, chip);
    const auto place = realPath(root.path(std::string(classFolder) + "/" + entry));
    chip.identity =
        hwmon::stablePath(belowDevices(root, place), [&](std::string_view ata) { return ataPortNumber(place, ata); })
        + "/" + std::string(withoutCounter(chip.prefix));
    chip.identity = printable(chip.identity);
    chip.name = printable(chip.name);
    return chip;
}

} // namespace

std::map<std::string, std::string> hwmonEntries(const RootFolder& root)
{
    std::map<std::string, std::string> entries;
    for (std::string& name : root.list(classFolder)) {
        std::error_code ignored;
        auto target = std::filesystem::read_symlink(root.path(std::string(classFolder) + "/" + name), ignored).string();
        entries.emplace(std::move(name), std::move(target));
    }
    return entries;
}

std::vector<HwmonChip> readHwmonChips(const RootFolder& root)
{
    std::vector<std::pair<std::string, HwmonChip>> found; // with where the entry leads
    for (const auto& [entry, target] : hwmonEntries(root)) {
        auto chip = readChip(root, entry);
        if (chip && !chip->channels.empty()) {
            found.emplace_back(target, std::move(*chip));
        }
    }
    std::sort(found.begin(), found.end(), [](const auto& a, const auto& b) {
        return std::tie(a.second.name, a.second.identity, a.first)
            < std::tie(b.second.name, b.second.identity, b.first);
    });
    // Twins that only a number of probing told apart, in the order of those.
    std::map<std::string, int> seen;
    std::vector<HwmonChip> chips;
    for (auto& [target, chip] : found) {
        if (const int count = ++seen[chip.identity]; count > 1) {
            chip.identity += "#" + std::to_string(count);
        }
        chips.push_back(std::move(chip));
    }
    return chips;
}

bool hasRealSMC(const RootFolder& root)
{
    const std::vector<std::string> entries = root.list(classFolder);
    return std::any_of(entries.begin(), entries.end(), [&](const std::string& entry) {
        const std::string folder = std::string(classFolder) + "/" + entry;
        auto name = root.readLine(folder + "/name");
        if (!name) {
            name = root.readLine(folder + "/device/name");
        }
        return name && (*name == "applesmc" || name->starts_with("macsmc"));
    });
}

double unitsOf(SensorKind kind)
{
    switch (kind) {
    case SensorKind::Fan:
        return 1;
    case SensorKind::Power: // µW
        return 1e6;
    default: // thousandths
        return 1e3;
    }
}

} // namespace meridal
