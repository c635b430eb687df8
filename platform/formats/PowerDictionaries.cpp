// SPDX-License-Identifier: Apache-2.0
#include "platform/formats/PowerDictionaries.h"

#include "base/Text.h"
#include "base/Value.h"
#include "platform/PeripheralNames.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <span>
#include <utility>

namespace meridal {

namespace {

constexpr double largestPercentage = 100;

std::optional<double> positive(const Value& dictionary, std::string_view key)
{
    const auto figure = number(dictionary, key);
    return figure && *figure > 0 ? figure : std::nullopt;
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

/// 0 to 100, whatever the source counts in: those of other makers may count in mAh.
std::optional<int> percentOf(const Value& description)
{
    const Value* now = find(description, "Current Capacity");
    if (!now || !now->is_number()) {
        return std::nullopt;
    }
    const auto full = positive(description, "Max Capacity");
    const double share = full && *full != largestPercentage ? std::round(now->get<double>() / *full * largestPercentage)
                                                            : now->get<double>();
    return std::isnan(share) ? 0 : static_cast<int>(std::clamp(share, 0.0, largestPercentage));
}

/// A figure to the nearest whole one; absent for what no figure of a battery is.
std::optional<std::int64_t> rounded(std::optional<double> figure)
{
    constexpr double largest = 1e12;
    return figure && std::abs(*figure) < largest ? std::optional(std::llround(*figure)) : std::nullopt;
}

std::optional<std::int64_t> notNegative(std::optional<double> figure)
{
    return figure && *figure >= 0 ? rounded(figure) : std::nullopt;
}

/// Minutes; those below 0 are being calculated.
std::optional<TimeEstimate> estimate(const Value& description, std::string_view key)
{
    constexpr std::int64_t longest = std::numeric_limits<int>::max();
    if (!find(description, key)) {
        return std::nullopt;
    }
    const auto minutes = integer(description, key);
    return minutes && *minutes >= 0 ? TimeEstimate{static_cast<int>(std::min(*minutes, longest))} : TimeEstimate{};
}

std::optional<PowerSourceKind> kindOf(const Value& description)
{
    const auto type = text(description, "Type");
    const bool isInternal =
        type ? type == "InternalBattery" : text(description, "Transport Type").value_or("Internal") == "Internal";
    if (isInternal) {
        return PowerSourceKind::InternalBattery;
    }
    return type.value_or("UPS") == "UPS" ? std::optional(PowerSourceKind::UPS) : std::nullopt; // else an accessory
}

PowerSupplyState supplyOf(const Value& description)
{
    const auto state = text(description, "Power Source State");
    if (!state) {
        return PowerSupplyState::Unknown;
    }
    return state == "AC Power"     ? PowerSupplyState::AC
        : state == "Battery Power" ? PowerSupplyState::Battery
                                   : PowerSupplyState::OffLine;
}

/// The condition counts where it says what is wrong, else what is said of the health.
std::optional<BatteryVerdict> verdictOf(const Value& description)
{
    using enum BatteryVerdict;
    static constexpr std::array<std::pair<std::string_view, BatteryVerdict>, 5> known = {
        {{"Poor", Poor}, {"Fair", Fair}, {"Good", Good}, {"Check Battery", CheckBattery},
            {"Permanent Battery Failure", PermanentFailure}}};
    const auto among = [&](std::span<const std::pair<std::string_view, BatteryVerdict>> some, const char* key) {
        const auto told = text(description, key);
        const auto* found =
            std::find_if(some.data(), some.data() + some.size(), [&](const auto& each) { return told == each.first; });
        return found == some.data() + some.size() ? std::nullopt : std::optional(found->second);
    };
    const auto condition = among(std::span(known).subspan(3), "BatteryHealthCondition");
    return condition ? condition : among(std::span(known).first(4), "BatteryHealth");
}

std::string serialOf(const Value& battery)
{
    return words(battery, "Serial").value_or(words(battery, "BatterySerialNumber").value_or(""));
}

std::optional<PowerSourceRecord> powerSourceOf(const Value& description)
{
    const auto kind = kindOf(description);
    if (!kind) {
        return std::nullopt;
    }
    return PowerSourceRecord{.kind = *kind,
        .name = text(description, "Name").value_or(""),
        .serial = text(description, "Hardware Serial Number").value_or(""),
        .present = flag(description, "Is Present").value_or(true),
        .supply = supplyOf(description),
        .charging = flag(description, "Is Charging").value_or(false),
        .charged = flag(description, "Is Charged").value_or(false),
        .heldBack = flag(description, "Optimized Battery Charging Engaged").value_or(false),
        .chargePercent = percentOf(description),
        .toEmpty = estimate(description, "Time to Empty"),
        .toFull = estimate(description, "Time to Full Charge"),
        .voltageMv = rounded(number(description, "Voltage")),
        .currentMa = rounded(number(description, "Current")),
        .verdict = verdictOf(description)};
}

// The day of manufacture

using Day = std::chrono::year_month_day;

constexpr int packedBase = 1980;
constexpr int writtenBase = 1992;
constexpr std::size_t writtenDigits = 6;

std::optional<Day> dayOf(int year, unsigned month, unsigned day)
{
    const Day date = std::chrono::year(year) / std::chrono::month(month) / std::chrono::day(day);
    return date.ok() ? std::optional(date) : std::nullopt;
}

std::optional<Day> dayOfDigits(std::string_view digits)
{
    const bool valid = digits.size() == writtenDigits
        && std::all_of(digits.begin(), digits.end(), [](char each) { return each >= '0' && each <= '9'; });
    if (!valid) {
        return std::nullopt;
    }
    const auto pair = [&](std::size_t at) { return (digits[at] - '0') * 10 + (digits[at + 1] - '0'); };
    return dayOf(writtenBase + pair(0), static_cast<unsigned>(pair(2)), static_cast<unsigned>(pair(4)));
}

/// Day in bits 0 to 4, month in bits 5 to 8, years since 1980 in bits 9 to 15.
std::optional<Day> dayOfPacked(std::int64_t packed)
{
    if (packed <= 0 || packed > 0xFFFF) {
        return std::nullopt;
    }
    const auto bits = static_cast<unsigned>(packed);
    return dayOf(packedBase + static_cast<int>(bits >> 9U), bits >> 5U & 0xFU, bits & 0x1FU);
}

/// Six digits YYMMDD that count years from 1992, as text or as the bytes of a number.
std::optional<Day> dayOfWritten(const Value& date)
{
    if (date.is_string()) {
        return dayOfDigits(date.get_ref<const std::string&>());
    }
    if (!date.is_number_integer()) {
        return std::nullopt;
    }
    // Some drivers hand the six bytes over as a number, lowest first as in memory.
    std::string digits;
    for (auto rest = date.get<std::uint64_t>(); rest != 0; rest >>= 8U) {
        digits += static_cast<char>(rest & 0xFFU);
    }
    if (const auto day = dayOfDigits(digits)) {
        return day;
    }
    std::reverse(digits.begin(), digits.end());
    return dayOfDigits(digits);
}

/// The written date of its "BatteryData" where there is a good one, else the packed one. Absent for a day that the calendar
/// does not have.
std::optional<Day> manufactureDate(const Dictionary& battery)
{
    const Value* data = find(battery, "BatteryData");
    const Value* written = data ? find(*data, "ManufactureDate") : nullptr;
    if (const auto day = written ? dayOfWritten(*written) : std::nullopt) {
        return day;
    }
    const auto packed = integer(battery, "ManufactureDate");
    return packed ? dayOfPacked(*packed) : std::nullopt;
}

// Its controller

/// On Apple silicon "MaxCapacity" and "CurrentCapacity" are percent, and the real figures stand elsewhere: 100 of 4,500
/// would look like a battery at 2 % of its health. macOS 27 has them in "BatteryData" alone.
BatteryControllerRecord controllerOf(const Value& battery)
{
    const Value* found = find(battery, "BatteryData");
    static const Value none;
    const Value& data = found ? *found : none;
    // No pack of a computer holds as little as 100 mAh.
    const auto charge = [](std::optional<double> figure) {
        return figure && *figure > largestPercentage ? figure : std::nullopt;
    };
    const auto told = charge(number(battery, "MaxCapacity"));
    // The full charge is what the raw maximum is called from macOS 27 on: health must not leap with the system.
    auto full = positive(battery, "AppleRawMaxCapacity");
    full = full ? full : charge(number(data, "FullChargeCapacity"));
    full = full ? full : positive(battery, "NominalChargeCapacity");
    full = full ? full : told;
    full = full ? full : positive(data, "NominalChargeCapacity");
    auto now = number(battery, "AppleRawCurrentCapacity");
    if (!now) {
        now = told ? number(battery, "CurrentCapacity") : number(data, "RemainingCapacity");
    }
    const auto design = positive(battery, "DesignCapacity");
    const auto voltage = positive(battery, "Voltage");
    constexpr double milli = 1000;
    return {.chargeNowMah = notNegative(now),
        .chargeFullMah = rounded(full),
        .chargeDesignMah = rounded(design ? design : positive(data, "DesignCapacity")),
        .energyNowMwh = now && voltage ? notNegative(*now * *voltage / milli) : std::nullopt,
        .cycles = notNegative(number(battery, "CycleCount")),
        .voltageMv = rounded(number(battery, "Voltage")),
        .currentMa = rounded(number(battery, "Amperage")),
        .manufactured = manufactureDate(battery)};
}

} // namespace

std::vector<PowerSourceRecord> powerSourcesOf(const std::vector<Dictionary>& descriptions, const Dictionary& battery)
{
    std::vector<PowerSourceRecord> sources;
    bool isFree = battery.is_object() && flag(battery, "BatteryInstalled") != false;
    for (const Dictionary& description : descriptions) {
        auto source = powerSourceOf(description);
        if (source && isFree && source->present && source->kind == PowerSourceKind::InternalBattery) {
            isFree = false;
            const std::string serial = serialOf(battery);
            if (serial.empty() || source->serial.empty() || serial == source->serial) {
                source->controller = controllerOf(battery);
            } // else it was exchanged between the two readings: the next one sees both
        }
        if (source) {
            sources.push_back(*std::move(source));
        }
    }
    return sources;
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
    battery.percent = percentOf(description);
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
