// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/power/PowerSupplies.h"

#include "platform/linux/power/HidReportDescriptor.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <utility>

namespace meridal {

namespace {

constexpr const char* folder = "sys/class/power_supply";
constexpr std::string_view ueventPrefix = "POWER_SUPPLY_";
constexpr double milli = 1000; // of the next smaller unit

// Bounds of what the pack of a computer can be, in µAh, µWh and µV: figures below are in milli-units.
constexpr double smallestCharge = 1e5;
constexpr double smallestEnergy = 5e5;
constexpr double smallestVoltage = 1e5;
// And of what it can give: more is a controller's way to say that it does not know.
constexpr double largestCurrent = 2e8; // µA
constexpr double largestPower = 1e9;   // µW
/// 16 set bits, in the milliwatts or milliamperes of ACPI's _BST, where 32 would stand for "unknown".
constexpr double unknownRate = 65535000;

template <typename Function>
std::optional<double> both(std::optional<double> a, std::optional<double> b, Function combine)
{
    return a && b ? std::optional<double>(combine(*a, *b)) : std::nullopt;
}

std::optional<double> scaled(std::optional<double> figure, double factor)
{
    return figure ? std::optional(*figure * factor) : std::nullopt;
}

std::optional<double> positive(std::optional<double> figure) { return figure && *figure > 0 ? figure : std::nullopt; }

/// The factor that brings figures into micro-units, by the size of one that cannot be small.
double unitOf(std::optional<double> figure, double smallest)
{
    return figure && *figure > 0 && *figure < smallest ? milli : 1;
}

std::optional<double> plausibleRate(std::optional<double> rate, double unit, double largest)
{
    if (!rate || std::abs(*rate) == unknownRate || std::abs(*rate * unit) > largest) {
        return std::nullopt;
    }
    return *rate * unit;
}

} // namespace

namespace {

/// Whether what the kernel takes for the battery of a device is that of a UPS. It talks to no device.
bool isOfHidUPS(const RootFolder& root, std::string_view name)
{
    const auto descriptor = root.read(fmt::format("{}/{}/device/report_descriptor", folder, name));
    return descriptor && hasApplication(*descriptor, hidUPS);
}

} // namespace

PowerSupply::PowerSupply(const RootFolder& root, std::string name) : root_(&root), name_(std::move(name))
{
    attributes_ = supplyAttributes(root.read(fmt::format("{}/{}/uevent", folder, name_)).value_or(""));
    prepare();
    if (type_ == "Battery" && ofDevice_ && isOfHidUPS(root, name_)) {
        type_ = "UPS";
        ofDevice_ = false;
    }
}

PowerSupply::PowerSupply(std::string name, std::string_view uevent)
    : name_(std::move(name)), attributes_(supplyAttributes(uevent))
{
    prepare();
}

void PowerSupply::prepare()
{
    type_ = text("type").value_or("");
    status_ = text("status").value_or("Unknown");
    ofDevice_ = text("scope") == "Device";
    present_ = figure("present").value_or(1) != 0;
    if (type_ != "Battery" || ofDevice_) {
        return;
    }
    const auto largest = [this](const char* full, const char* design) {
        return std::max(figure(full).value_or(0), figure(design).value_or(0));
    };
    chargeUnit_ = unitOf(largest("charge_full", "charge_full_design"), smallestCharge);
    energyUnit_ = unitOf(largest("energy_full", "energy_full_design"), smallestEnergy);
}

std::optional<std::string> PowerSupply::text(std::string_view file) const
{
    if (const auto known = attributes_.find(file); known != attributes_.end()) {
        return known->second;
    }
    return root_ ? root_->readLine(fmt::format("{}/{}/{}", folder, name_, file)) : std::nullopt;
}

std::optional<double> PowerSupply::figure(std::string_view file) const
{
    const auto line = text(file);
    std::int64_t number = 0;
    if (!line || std::from_chars(line->data(), line->data() + line->size(), number).ec != std::errc()) {
        return std::nullopt;
    }
    return static_cast<double>(number);
}

// In micro-units

std::optional<double> PowerSupply::volts() const
{
    auto microvolts = positive(figure("voltage_now"));
    if (!microvolts) {
        microvolts = positive(figure("voltage_avg"));
    }
    return scaled(microvolts, unitOf(microvolts, smallestVoltage));
}

std::optional<double> PowerSupply::charge(std::string_view name) const
{
    return scaled(figure("charge_" + std::string(name)), chargeUnit_);
}

std::optional<double> PowerSupply::energy(std::string_view name) const
{
    return scaled(figure("energy_" + std::string(name)), energyUnit_);
}

std::optional<double> PowerSupply::current() const
{
    const auto now = plausibleRate(figure("current_now"), chargeUnit_, largestCurrent);
    return now ? now : plausibleRate(figure("current_avg"), chargeUnit_, largestCurrent);
}

std::optional<double> PowerSupply::power() const
{
    return plausibleRate(figure("power_now"), energyUnit_, largestPower);
}

// For people

std::optional<double> PowerSupply::percent() const
{
    auto percent = figure("capacity");
    for (const char* whole : {"full", "full_design"}) { // the second where the driver does not know the first
        for (const auto amount : {&PowerSupply::energy, &PowerSupply::charge}) {
            if (!percent) {
                percent = both((this->*amount)("now"), positive((this->*amount)(whole)),
                    [](double now, double full) { return std::round(now / full * 100); });
            }
        }
    }
    // Worn packs report a little more than what they call full.
    return percent ? std::optional(std::clamp(*percent, 0.0, 100.0)) : std::nullopt;
}

std::optional<double> PowerSupply::millivolts() const { return scaled(volts(), 1 / milli); }

std::optional<double> PowerSupply::milliamperes() const
{
    auto current = scaled(this->current(), 1 / milli);
    if (!current) { // µW by mV
        current = both(power(), millivolts(), [](double power, double volts) { return power / volts; });
    }
    if (!current) {
        return std::nullopt;
    }
    const double amount = std::abs(*current);
    if (status_ == "Discharging") {
        return amount > 0 ? -amount : 0;
    }
    return status_ == "Charging" ? amount : *current;
}

/// µV that the pack was designed for, where that is told.
std::optional<double> PowerSupply::nominalVolts() const
{
    const auto microvolts = positive(figure("voltage_min_design"));
    return microvolts ? scaled(microvolts, unitOf(microvolts, smallestVoltage)) : volts();
}

std::optional<double> PowerSupply::milliampereHours(std::string_view name) const
{
    if (const auto amount = charge(name)) {
        return scaled(amount, 1 / milli);
    }
    return both(energy(name), nominalVolts(),
        [](double microwattHours, double microvolt) { return microwattHours / microvolt * milli; });
}

std::optional<double> PowerSupply::milliwattHours(std::string_view name) const
{
    if (const auto amount = energy(name)) {
        return scaled(amount, 1 / milli);
    }
    constexpr double inMilliwattHours = 1e-9; // µAh times µV
    return both(charge(name), nominalVolts(),
        [](double microampereHours, double microvolt) { return microampereHours * microvolt * inMilliwattHours; });
}

/// Hours that a charge (µAh) or an energy (µWh) takes at the present rate.
std::optional<double> PowerSupply::hoursOf(std::optional<double> charge, std::optional<double> energy) const
{
    const auto divide = [](double amount, double rate) { return std::max(0.0, amount) / std::abs(rate); };
    const auto nonZero = [](std::optional<double> rate) { return rate && *rate != 0 ? rate : std::nullopt; };
    if (const auto hours = both(energy, nonZero(power()), divide)) {
        return hours;
    }
    if (const auto hours = both(charge, nonZero(current()), divide)) {
        return hours;
    }
    // One in energy, the other in current.
    const auto asPower = both(current(), volts(), [](double amperes, double volt) { return amperes * volt * 1e-6; });
    return both(energy, nonZero(asPower), divide);
}

namespace {

/// Minutes, or nothing for what no battery lasts: a rate near 0 says nothing about the time.
std::optional<double> minutesOf(std::optional<double> hours)
{
    constexpr double longest = 30 * 24; // h
    return hours && *hours <= longest ? std::optional(std::round(*hours * 60)) : std::nullopt;
}

} // namespace

std::optional<double> PowerSupply::minutesToEmpty() const
{
    if (const auto told = positive(figure("time_to_empty_now"))) {
        return std::round(*told / 60);
    }
    return minutesOf(hoursOf(charge("now"), energy("now")));
}

std::optional<double> PowerSupply::minutesToFull() const
{
    if (const auto told = positive(figure("time_to_full_now"))) {
        return std::round(*told / 60);
    }
    const auto missing = [](double full, double now) { return full - now; };
    return minutesOf(
        hoursOf(both(charge("full"), charge("now"), missing), both(energy("full"), energy("now"), missing)));
}

std::map<std::string, std::string, std::less<>> supplyAttributes(std::string_view uevent)
{
    std::map<std::string, std::string, std::less<>> attributes;
    constexpr std::string_view blanks = " \t\r";
    while (!uevent.empty()) {
        std::string_view line = uevent.substr(0, uevent.find('\n'));
        uevent.remove_prefix(std::min(line.size() + 1, uevent.size()));
        const std::size_t equals = line.find('=');
        if (!line.starts_with(ueventPrefix) || equals == std::string_view::npos) {
            continue;
        }
        std::string name(line.substr(ueventPrefix.size(), equals - ueventPrefix.size()));
        std::transform(name.begin(), name.end(), name.begin(),
            [](char each) { return each >= 'A' && each <= 'Z' ? static_cast<char>(each - 'A' + 'a') : each; });
        const std::size_t begin = line.find_first_not_of(blanks, equals + 1);
        if (begin != std::string_view::npos) {
            line = line.substr(begin, line.find_last_not_of(blanks) - begin + 1);
            attributes.insert_or_assign(std::move(name), std::string(line));
        }
    }
    return attributes;
}

std::vector<PowerSupply> powerSupplies(const RootFolder& root, SuppliesOf owner)
{
    std::vector<PowerSupply> supplies;
    for (std::string& name : root.list(folder)) {
        // The one file that every driver answers by itself.
        const bool ofDevice =
            root.readLine(fmt::format("{}/{}/scope", folder, name)) == "Device" && !isOfHidUPS(root, name);
        if (ofDevice == (owner == SuppliesOf::Devices)) {
            supplies.emplace_back(root, std::move(name));
        }
    }
    return supplies;
}

} // namespace meridal
