#include "platform/linux/PowerSupplies.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <utility>

namespace meridal {

namespace {

constexpr const char* folder = "sys/class/power_supply";

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

} // namespace

PowerSupply::PowerSupply(const RootFolder& root, std::string name)
    : root_(root)
    , name_(std::move(name))
    , type_(text("type").value_or(""))
    , status_(text("status").value_or("Unknown"))
    , ofDevice_(text("scope") == "Device")
    , present_(figure("present").value_or(1) != 0)
{
}

std::optional<std::string> PowerSupply::text(std::string_view file) const
{
    return root_.readLine(fmt::format("{}/{}/{}", folder, name_, file));
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

std::optional<double> PowerSupply::percent() const
{
    auto percent = figure("capacity");
    for (const char* kind : {"energy", "charge"}) {
        if (!percent) {
            percent = both(figure(std::string(kind) + "_now"), positive(figure(std::string(kind) + "_full")),
                [](double now, double full) { return std::round(now / full * 100); });
        }
    }
    // Worn packs report a little more than what they call full.
    return percent ? std::optional(std::clamp(*percent, 0.0, 100.0)) : std::nullopt;
}

std::optional<double> PowerSupply::millivolts() const { return scaled(figure("voltage_now"), 1e-3); }

std::optional<double> PowerSupply::milliamperes() const
{
    auto current = scaled(figure("current_now"), 1e-3);
    if (!current) { // µW by mV
        current =
            both(figure("power_now"), positive(millivolts()), [](double power, double volts) { return power / volts; });
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

std::optional<double> PowerSupply::milliampereHours(std::string_view name) const
{
    if (const auto charge = figure("charge_" + std::string(name))) {
        return scaled(charge, 1e-3);
    }
    auto volts = positive(figure("voltage_min_design"));
    if (!volts) {
        volts = positive(figure("voltage_now"));
    }
    return both(figure("energy_" + std::string(name)), volts,
        [](double microwattHours, double microvolts) { return microwattHours / microvolts * 1e3; });
}

/// Hours that a charge (µAh) or an energy (µWh) takes at the present rate.
std::optional<double> PowerSupply::hoursOf(std::optional<double> charge, std::optional<double> energy) const
{
    const auto divide = [](double amount, double rate) { return std::max(0.0, amount) / std::abs(rate); };
    const auto nonZero = [](std::optional<double> rate) { return rate && *rate != 0 ? rate : std::nullopt; };
    if (const auto hours = both(energy, nonZero(figure("power_now")), divide)) {
        return hours;
    }
    if (const auto hours = both(charge, nonZero(figure("current_now")), divide)) {
        return hours;
    }
    // One in energy, the other in current.
    return both(energy,
        nonZero(both(figure("current_now"), figure("voltage_now"),
            [](double current, double volts) { return current * volts * 1e-6; })),
        divide);
}

std::optional<double> PowerSupply::minutesToEmpty() const
{
    if (const auto told = positive(figure("time_to_empty_now"))) {
        return std::round(*told / 60);
    }
    const auto hours = hoursOf(figure("charge_now"), figure("energy_now"));
    return hours ? std::optional(std::round(*hours * 60)) : std::nullopt;
}

std::optional<double> PowerSupply::minutesToFull() const
{
    if (const auto told = positive(figure("time_to_full_now"))) {
        return std::round(*told / 60);
    }
    const auto missing = [](double full, double now) { return full - now; };
    const auto hours = hoursOf(both(figure("charge_full"), figure("charge_now"), missing),
        both(figure("energy_full"), figure("energy_now"), missing));
    return hours ? std::optional(std::round(*hours * 60)) : std::nullopt;
}

std::vector<PowerSupply> powerSupplies(const RootFolder& root)
{
    std::vector<PowerSupply> supplies;
    for (std::string& name : root.list(folder)) {
        supplies.emplace_back(root, std::move(name));
    }
    return supplies;
}

} // namespace meridal
