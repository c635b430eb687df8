#include "platform/formats/PowerDictionaries.h"

#include "base/Value.h"
#include "platform/PeripheralNames.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <utility>

namespace meridal {

namespace {

constexpr double largestPercentage = 100;

std::optional<double> positive(const Value& dictionary, std::string_view key)
{
    const auto figure = number(dictionary, key);
    return figure && *figure > 0 ? figure : std::nullopt;
}

/// The first entry above 0 of several.
std::optional<double> firstPositive(const Value& dictionary, std::initializer_list<std::string_view> keys)
{
    for (const std::string_view key : keys) {
        if (const auto figure = positive(dictionary, key)) {
            return figure;
        }
    }
    return std::nullopt;
}

void replace(Dictionary& dictionary, const char* key, const std::optional<double>& figure)
{
    if (figure) {
        dictionary[key] = static_cast<std::int64_t>(std::round(*figure));
    } else {
        dictionary.erase(key);
    }
}

std::optional<std::string> words(const Value& dictionary, std::string_view key)
{
    const auto found = text(dictionary, key);
    return found && !found->empty() ? found : std::nullopt;
}

std::optional<bool> flag(const Value& dictionary, std::string_view key)
{
    const Value* entry = find(dictionary, key);
    if (entry && entry->is_boolean()) {
        return entry->get<bool>();
    }
    const auto figure = number(dictionary, key);
    return figure ? std::optional(*figure != 0) : std::nullopt;
}

/// The best of several names that stays the same: an address, else the first that is there.
std::optional<std::string> identity(const Value& dictionary, std::initializer_list<std::string_view> keys)
{
    for (const std::string_view key : keys) {
        if (const auto address = hardwareAddress(text(dictionary, key).value_or(""))) {
            return address;
        }
    }
    for (const std::string_view key : keys) {
        if (auto found = words(dictionary, key)) {
            return found;
        }
    }
    return std::nullopt;
}

} // namespace

Dictionary percentDescription(Dictionary description)
{
    const auto now = number(description, "Current Capacity");
    const auto full = positive(description, "Max Capacity");
    if (now && full && *full != largestPercentage) {
        replace(description, "Current Capacity", *now / *full * largestPercentage);
        description["Max Capacity"] = 100;
    }
    return description;
}

Dictionary milliampereSmartBattery(Dictionary properties)
{
    const Value* found = find(properties, "BatteryData");
    const Dictionary data = found ? *found : Value();
    if (!positive(properties, "DesignCapacity")) {
        replace(properties, "DesignCapacity", positive(data, "DesignCapacity"));
    }
    const auto told = positive(properties, "MaxCapacity");
    // No pack of a computer holds as little as 100 mAh.
    const bool isPercentage = told && *told <= largestPercentage;
    auto full = firstPositive(properties, {"AppleRawMaxCapacity", "NominalChargeCapacity"});
    if (!full) {
        full = isPercentage ? positive(data, "NominalChargeCapacity") : told;
    }
    replace(properties, "MaxCapacity", full);
    auto now = number(properties, "AppleRawCurrentCapacity");
    if (!now && !isPercentage) {
        now = number(properties, "CurrentCapacity");
    }
    replace(properties, "CurrentCapacity", now);
    if (!words(properties, "Serial")) {
        if (auto serial = words(properties, "BatterySerialNumber")) {
            properties["Serial"] = std::move(*serial);
        }
    }
    return properties;
}

std::optional<PeripheralBattery> accessoryBattery(const Dictionary& description)
{
    const auto name = words(description, "Name");
    const auto key = identity(description, {"Accessory Identifier", "Hardware Serial Number", "Name"});
    if (text(description, "Type") != "Accessory Source" || !key || flag(description, "Is Present") == false) {
        return std::nullopt;
    }
    PeripheralBattery battery{.key = *key, .name = name.value_or(*key)};
    // The two ear pieces and the case of one headset are sources of their own with one identifier.
    if (const auto part = words(description, "Part Identifier"); part && part != "Single") {
        battery.key += ' ' + *part;
        battery.name += " (" + lowercase(*part) + ')';
    }
    const std::string category = words(description, "Accessory Category").value_or(battery.name);
    battery.kind = kindOfName(category) == PeripheralKind::Other ? kindOfName(battery.name) : kindOfName(category);
    const Dictionary percent = percentDescription(description);
    battery.percent = number(percent, "Current Capacity");
    battery.charging = flag(description, "Is Charging");
    battery.bluetooth = words(description, "Transport Type").value_or("").starts_with("Bluetooth");
    return battery;
}

std::optional<PeripheralBattery> registryBattery(const Dictionary& properties)
{
    const auto percent = number(properties, "BatteryPercent");
    const auto level = percent ? percent : number(properties, "Battery Level");
    const auto name = words(properties, "Product");
    const auto key = identity(properties, {"DeviceAddress", "BD_ADDR", "SerialNumber", "Product"});
    // Drivers publish 0 before the device has told them anything.
    if (!level || *level <= 0 || !key) {
        return std::nullopt;
    }
    PeripheralBattery battery{.key = *key, .name = name.value_or(*key)};
    battery.kind = kindOfName(battery.name);
    battery.percent = std::min(*level, largestPercentage);
    battery.bluetooth = words(properties, "Transport").value_or("").starts_with("Bluetooth");
    return battery;
}

} // namespace meridal
