#include "platform/linux/power/SysfsPowerSources.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>
#include <utility>

namespace meridal {

namespace {

template <typename Figure>
void put(Dictionary& into, const char* key, const std::optional<Figure>& figure)
{
    if (figure) {
        into[key] = *figure;
    }
}

/// Drivers may tell anything: what is beyond every real figure is left out.
void putWhole(Dictionary& into, const char* key, const std::optional<double>& figure)
{
    constexpr double largest = 1e12;
    if (figure && std::abs(*figure) < largest) {
        into[key] = static_cast<std::int64_t>(*figure);
    }
}

/// s after an announcement: a battery learns later than its adapter that it is unplugged, and may not announce it.
constexpr std::array secondLooks = {1.0, 3.0};
/// s that a reading counts as one moment with what is asked next, so that both speak of the same.
constexpr double sameMoment = 0.1;

/// Firmware that does not know says 0.
std::optional<double> aboveZero(std::optional<double> figure) { return figure && *figure > 0 ? figure : std::nullopt; }

std::optional<bool> externalPower(const std::vector<PowerSupply>& supplies)
{
    bool adapters = false;
    for (const PowerSupply& supply : supplies) {
        adapters = adapters || supply.isExternal();
        if (supply.isExternal() && supply.isOnline()) {
            return true;
        }
    }
    return adapters ? std::optional(false) : std::nullopt;
}

bool anyInternal(const std::vector<PowerSupply>& supplies, std::string_view status)
{
    return std::any_of(supplies.begin(), supplies.end(),
        [status](const PowerSupply& supply) { return supply.isInternalBattery() && supply.status() == status; });
}

/// Whether the machine runs on its batteries: no adapter gives power and, as some adapters have no driver, none of the
/// batteries is being charged either. Without any adapter known it takes a battery that is being drained.
bool onBattery(const std::vector<PowerSupply>& supplies)
{
    const auto external = externalPower(supplies);
    if (external.value_or(false)) {
        return false;
    }
    return !anyInternal(supplies, "Charging") && (anyInternal(supplies, "Discharging") || external.has_value());
}

std::optional<std::string> healthOf(const PowerSupply& supply)
{
    const auto health = supply.text("health");
    if (health == "Good" || health == "Cool" || health == "Warm") {
        return "Good";
    }
    return health == "Dead" ? std::optional<std::string>("Poor") : std::nullopt;
}

std::string stateOf(const PowerSupply& supply, bool battery)
{
    const bool drained = supply.isUPS() ? supply.status() == "Discharging" : battery;
    return drained ? "Battery Power" : "AC Power";
}

Dictionary describe(const PowerSupply& supply, bool battery)
{
    const std::string state = stateOf(supply, battery);
    const bool charging = supply.status() == "Charging";
    const bool charged = supply.status() == "Full";
    Dictionary source{{"Name", supply.text("model_name").value_or(supply.name())},
        {"Type", supply.isUPS() ? "UPS" : "InternalBattery"}, {"Transport Type", supply.isUPS() ? "USB" : "Internal"},
        {"Power Source State", state}, {"Is Present", true}, {"Is Charging", charging}, {"Is Charged", charged}};
    if (const auto percent = supply.percent()) {
        putWhole(source, "Current Capacity", percent);
        source["Max Capacity"] = 100;
    }
    if (state == "Battery Power" || supply.status() == "Discharging") { // the latter also from a weak adapter
        putWhole(source, "Time to Empty", supply.minutesToEmpty().value_or(-1));
    } else if (charging) {
        putWhole(source, "Time to Full Charge", supply.minutesToFull().value_or(-1));
    }
    putWhole(source, "Voltage", supply.millivolts());
    putWhole(source, "Current", supply.milliamperes());
    put(source, "BatteryHealth", healthOf(supply));
    if (supply.text("health") == "Unspecified failure") {
        source["BatteryHealthCondition"] = "Check Battery";
    }
    put(source, "Hardware Serial Number", supply.text("serial_number"));
    return source;
}

/// Day in bits 0 to 4, month in 5 to 8, years since 1980 from 9 on, as the controllers of batteries keep it.
std::optional<std::int64_t> packedDate(const PowerSupply& supply)
{
    const auto year = supply.figure("manufacture_year");
    const auto month = supply.figure("manufacture_month");
    const auto day = supply.figure("manufacture_day");
    if (!year || !month || !day || *year < 1980 || *year > 2107 || *month < 1 || *month > 12 || *day < 1 || *day > 31) {
        return std::nullopt;
    }
    return static_cast<std::int64_t>(*day) | static_cast<std::int64_t>(*month) << 5
        | (static_cast<std::int64_t>(*year) - 1980) << 9;
}

/// The entry of the battery's own controller.
Dictionary describeController(const PowerSupply& supply, bool external)
{
    Dictionary battery{{"BatteryInstalled", true}, {"ExternalConnected", external},
        {"IsCharging", supply.status() == "Charging"}, {"FullyCharged", supply.status() == "Full"}};
    putWhole(battery, "CurrentCapacity", supply.milliampereHours("now"));
    putWhole(battery, "MaxCapacity", aboveZero(supply.milliampereHours("full")));
    putWhole(battery, "DesignCapacity", aboveZero(supply.milliampereHours("full_design")));
    // Controllers that do not count report 0.
    putWhole(battery, "CycleCount", aboveZero(supply.figure("cycle_count")));
    putWhole(battery, "Voltage", supply.millivolts());
    putWhole(battery, "Amperage", supply.milliamperes());
    putWhole(battery, "TimeRemaining",
        supply.status() == "Charging"          ? supply.minutesToFull()
            : supply.status() == "Discharging" ? supply.minutesToEmpty()
                                               : std::nullopt);
    if (const auto tenths = supply.figure("temp")) { // tenths of a degree Celsius
        putWhole(battery, "Temperature", *tenths * 10);
    }
    put(battery, "ManufactureDate", packedDate(supply));
    put(battery, "Serial", supply.text("serial_number"));
    return battery;
}

} // namespace

class SysfsPowerSources::Entry final : public PowerSources::Observation {
public:
    Entry(std::weak_ptr<Observers> list, Observers::iterator position) : list_(std::move(list)), position_(position) { }
    ~Entry() override
    {
        if (const auto list = list_.lock()) {
            list->erase(position_);
        }
    }

private:
    std::weak_ptr<Observers> list_;
    Observers::iterator position_;
};

SysfsPowerSources::SysfsPowerSources(
    Runtime& runtime, const std::filesystem::path& root, std::shared_ptr<Limitations> limitations)
    : runtime_(runtime)
    , root_(root)
    , uevents_(std::make_unique<Uevents>(runtime, root, "power_supply", [this] { changed(); }))
    , ups_(runtime, root, limitations, [this] { tell(); })
{
    if (!uevents_->isOpen()) {
        limitations->set("power-source-changes", "changes of the power source are not announced: no uevents here");
    }
}

const std::vector<PowerSupply>& SysfsPowerSources::read()
{
    latest_ = Snapshot{.supplies = powerSupplies(root_, SuppliesOf::Machine), .moment = runtime_.monotonicTime()};
    return latest_->supplies;
}

std::vector<Dictionary> SysfsPowerSources::descriptions()
{
    const std::vector<PowerSupply>& supplies = read();
    const bool battery = onBattery(supplies);
    std::vector<Dictionary> sources;
    for (const PowerSupply& supply : supplies) {
        if (supply.isInternalBattery() || supply.isUPS()) {
            sources.push_back(describe(supply, battery));
        }
    }
    for (Dictionary& ups : ups_.descriptions()) {
        sources.push_back(std::move(ups));
    }
    return sources;
}

std::vector<Dictionary> SysfsPowerSources::smartBatteries()
{
    const bool isFresh = latest_ && runtime_.monotonicTime() - latest_->moment <= sameMoment;
    const std::vector<PowerSupply>& supplies = isFresh ? latest_->supplies : read();
    const bool battery = onBattery(supplies);
    std::vector<Dictionary> batteries;
    for (const PowerSupply& supply : supplies) {
        if (supply.isInternalBattery()) {
            batteries.push_back(describeController(supply, !battery));
        }
    }
    return batteries;
}

std::unique_ptr<PowerSources::Observation> SysfsPowerSources::observe(std::function<void()> changed)
{
    observers_->push_back(std::make_shared<const std::function<void()>>(std::move(changed)));
    return std::make_unique<Entry>(observers_, std::prev(observers_->end()));
}

void SysfsPowerSources::changed()
{
    again_.clear();
    if (isDoubtful()) {
        for (const double seconds : secondLooks) {
            again_.push_back(runtime_.startTimer(runtime_.mainQueue(), {.first = seconds}, [this] { tell(); }));
        }
    }
    tell();
}

/// A battery that is being charged while all adapters are off: a dock without a driver, or a battery that lags behind.
bool SysfsPowerSources::isDoubtful()
{
    const std::vector<PowerSupply>& supplies = read();
    return externalPower(supplies) == false && anyInternal(supplies, "Charging");
}

void SysfsPowerSources::tell()
{
    const Observers observers = *observers_; // a handler may end any of them
    for (const auto& observer : observers) {
        (*observer)();
    }
}

} // namespace meridal
