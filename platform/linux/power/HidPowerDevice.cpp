// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/power/HidPowerDevice.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace meridal {

namespace {

constexpr std::uint16_t powerPage = 0x84;
constexpr std::uint16_t batteryPage = 0x85;

// Collections of the page "Power Device"
constexpr std::uint16_t batterySystem = 0x10;
constexpr std::uint16_t battery = 0x12;
constexpr std::uint16_t powerSummary = 0x24;

// Units: the nibbles from the lowest on are the system (1: centimetre, gram, second), then the powers of length, mass,
// time, temperature and current.
constexpr std::uint32_t second = 0x1001;
constexpr std::uint32_t volt = 0x00F0D121; // of which one is 10^7 of that system's
constexpr std::uint32_t ampere = 0x00100001;
constexpr double voltsOfUnit = 1e-7;

constexpr double percentMode = 2; ///< CapacityMode: 0 is mAh, 1 is mWh
constexpr double booleanMode = 3; ///< no figures, only whether it is low
constexpr double full = 100;      ///< %
constexpr double highestVolts = 1000;
constexpr double highestAmperes = 1000;
constexpr double longest = 30 * 24 * 60; ///< min: no battery lasts longer

std::optional<double> within(std::optional<double> figure, double lowest, double highest)
{
    return figure && *figure >= lowest && *figure <= highest ? figure : std::nullopt;
}

} // namespace

/// Where a figure may be found.
struct HidPowerDevice::Wanted {
    Figure figure;
    HidUsage usage;
    bool isOfBattery; ///< its usage is used for input and output as well
};

/// How well a field serves for a figure, more is better. Absent where it is not what is wanted.
std::optional<int> HidPowerDevice::fitness(const Wanted& wanted, const HidField& field)
{
    if (field.usage != wanted.usage) {
        return std::nullopt;
    }
    std::uint16_t holder = 0; // the innermost thing that has such figures
    bool isInSummary = false;
    for (const HidUsage& collection : field.collections) {
        if (collection.page == powerPage) {
            holder = collection.usage;
            isInSummary = isInSummary || collection.usage == powerSummary;
        }
    }
    // Of a feature the device tells the value as it is; not all of them can be asked for an input.
    const int kind = field.kind == HidReportKind::Feature ? 1 : 0;
    if (!wanted.isOfBattery) {
        return kind + (isInSummary ? 2 : 0);
    }
    switch (holder) {
    case battery:
        return kind + 4;
    case batterySystem:
        return kind + 2;
    case powerSummary:
        return kind;
    default:
        return std::nullopt;
    }
}

HidPowerDevice::HidPowerDevice(std::string_view reportDescriptor)
{
    const HidReportLayout layout = hidReportLayout(reportDescriptor);
    isNumbered_ = layout.isNumbered;
    findFields(layout);
    makeRequests(layout);
}

void HidPowerDevice::findFields(const HidReportLayout& layout)
{
    static constexpr std::array<Wanted, FigureCount> all = {{{RemainingCapacity, {batteryPage, 0x66}, false},
        {FullChargeCapacity, {batteryPage, 0x67}, false}, {DesignCapacity, {batteryPage, 0x83}, false},
        {CapacityMode, {batteryPage, 0x2C}, false}, {RelativeCharge, {batteryPage, 0x64}, false},
        {TimeToEmpty, {batteryPage, 0x68}, false}, {TimeToFull, {batteryPage, 0x6A}, false},
        {ACPresent, {batteryPage, 0xD0}, false}, {BatteryPresent, {batteryPage, 0xD1}, false},
        {Charging, {batteryPage, 0x44}, false}, {Discharging, {batteryPage, 0x45}, false},
        {FullyCharged, {batteryPage, 0x46}, false}, {NeedReplacement, {batteryPage, 0x4B}, false},
        {Voltage, {powerPage, 0x30}, true}, {Current, {powerPage, 0x31}, true}}};
    for (const Wanted& wanted : all) {
        int best = -1;
        for (const HidField& field : layout.fields) {
            const auto fit = fitness(wanted, field);
            if (fit && *fit > best) {
                best = *fit;
                fields_[wanted.figure] = field;
            }
        }
    }
}

void HidPowerDevice::makeRequests(const HidReportLayout& layout)
{
    for (const auto& field : fields_) {
        if (!field) {
            continue;
        }
        const std::size_t size = (layout.bits.at({field->kind, field->report}) + 7) / 8;
        const HidReportRequest request{.kind = field->kind, .report = field->report, .size = size};
        if (size <= largestReport && requests_.size() < mostRequests
            && std::find(requests_.begin(), requests_.end(), request) == requests_.end()) {
            requests_.push_back(request);
        }
    }
}

// Figures

std::optional<double> HidPowerDevice::value(Figure figure, const HidReports& answers) const
{
    const auto& field = fields_[figure];
    if (!field) {
        return std::nullopt;
    }
    const auto answer = answers.find({field->kind, field->report});
    return answer == answers.end() ? std::nullopt : field->value(answer->second);
}

std::optional<bool> HidPowerDevice::flag(Figure figure, const HidReports& answers) const
{
    const auto number = value(figure, answers);
    return number ? std::optional(*number != 0) : std::nullopt;
}

/// A figure in the unit that it must have: without one, nobody knows of what it is.
std::optional<double> HidPowerDevice::inUnit(
    Figure figure, std::uint32_t unit, double scale, const HidReports& answers) const
{
    const auto& field = fields_[figure];
    const auto number = field && field->unit == unit ? value(figure, answers) : std::nullopt;
    return number ? std::optional(*number * scale) : std::nullopt;
}

TimeEstimate HidPowerDevice::minutes(Figure figure, const HidReports& answers) const
{
    const auto& field = fields_[figure];
    const auto seconds = inUnit(figure, second, 1, answers);
    // All bits set is how devices with 16 of them say that they do not know.
    constexpr std::int64_t unknown = std::numeric_limits<std::uint16_t>::max();
    if (!seconds || field->raw(answers.at({field->kind, field->report})) == unknown) {
        return {};
    }
    const auto minutes = within(std::round(*seconds / 60), 0, longest);
    return {minutes ? std::optional(static_cast<int>(*minutes)) : std::nullopt};
}

std::optional<double> HidPowerDevice::percent(const HidReports& answers) const
{
    const auto remaining = value(RemainingCapacity, answers);
    const auto mode = value(CapacityMode, answers);
    const Figure wholeFigure = value(FullChargeCapacity, answers) ? FullChargeCapacity : DesignCapacity;
    const auto whole = value(wholeFigure, answers);
    const bool looksLikePercent = remaining && fields_[RemainingCapacity]->unit == 0 && whole.value_or(full) == full;
    if (remaining && (mode == percentMode || (!mode && looksLikePercent))) {
        return std::clamp(*remaining, 0.0, full);
    }
    // Both in one unit, whichever that is.
    if (remaining && mode != booleanMode && whole && *whole > 0
        && fields_[RemainingCapacity]->unit == fields_[wholeFigure]->unit) {
        return std::clamp(std::round(*remaining / *whole * full), 0.0, full);
    }
    const auto relative = value(RelativeCharge, answers);
    return relative ? std::optional(std::clamp(*relative, 0.0, full)) : std::nullopt;
}

// The record

void HidPowerDevice::readState(PowerSourceRecord& source, const HidReports& answers) const
{
    const auto external = flag(ACPresent, answers);
    const auto discharging = flag(Discharging, answers);
    const bool charging = flag(Charging, answers).value_or(false);
    if (!external && !discharging) {
        return; // nothing is known of what it runs on
    }
    // Also while it tests its battery, with the mains there.
    const bool drained = discharging.value_or(false) || !external.value_or(true);
    source.supply = drained ? PowerSupplyState::Battery : PowerSupplyState::AC;
    source.charging = charging && !drained;
    source.charged = flag(FullyCharged, answers).value_or(false) && !drained;
    if (drained) {
        source.toEmpty = minutes(TimeToEmpty, answers);
    } else if (charging) {
        source.toFull = minutes(TimeToFull, answers);
    }
    if (const auto amperes = within(inUnit(Current, ampere, 1, answers), -highestAmperes, highestAmperes)) {
        // Few of them give it a sign.
        const double amount = std::round(std::abs(*amperes) * 1000);
        source.currentMa = static_cast<std::int64_t>(drained ? -amount : charging ? amount : *amperes * 1000);
    }
}

PowerSourceRecord HidPowerDevice::record(const HidReports& answers) const
{
    PowerSourceRecord source{.kind = PowerSourceKind::UPS, .present = flag(BatteryPresent, answers).value_or(true)};
    readState(source, answers);
    if (const auto charge = percent(answers)) {
        source.chargePercent = static_cast<int>(*charge);
    }
    if (const auto volts = within(inUnit(Voltage, volt, voltsOfUnit, answers), 1, highestVolts)) {
        source.voltageMv = std::llround(*volts * 1000);
    }
    if (const auto isSpent = flag(NeedReplacement, answers)) {
        source.verdict = *isSpent ? BatteryVerdict::Poor : BatteryVerdict::Good;
    }
    return source;
}

} // namespace meridal
