// SPDX-License-Identifier: Apache-2.0
// Why a machine is hot, loud, or short of charge.

#include "base/Text.h"
#include "client/screen/Format.h"
#include "client/views/ReasonWords.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace meridal {

namespace {

// What stands out.
constexpr double nearCritical = 10; // °C below the limit at which hardware protects itself: fans and clocks react here
constexpr double nearHigh = 3;      // °C below a limit that somebody set for comfort
constexpr double hotAnyway = 85;    // °C, where no limit is known: what most chips call high
constexpr double unusual = 12;      // °C above what is usual, and warm at all
constexpr double warm = 55;         // °C
constexpr double fasterThanUsual = 1.25;
constexpr double leastFaster = 300;   // rpm
constexpr double nearlyFull = 0.85;   // of a fan's highest speed
constexpr double shortRest = 60;      // min
constexpr double moreThanUsual = 1.4; // times the usual power

/// A temperature, and how far it is from where that matters.
struct Heat {
    const Value* sensor = nullptr;
    double value = 0;
    std::optional<double> limit = {};
    std::optional<double> usual = {};
    bool isHot = false;
    bool isUnusual = false;
    double weight = 0; ///< how near it is, °C; the more the nearer
};

std::string courseName(const Value& sensor) { return "sensors/" + text(sensor, "key").value_or("") + ".value"; }

std::string nameOf(const Value& sensor) { return printable(text(sensor, "name").value_or("a sensor")); }

Heat heatOf(const Evidence& evidence, const Value& sensor, double value)
{
    Heat heat{.sensor = &sensor, .value = value};
    const auto critical = number(sensor, "critical");
    const Value* fixed = find(sensor, "fixed");
    const auto high = fixed && *fixed == true ? number(sensor, "high") : std::nullopt;
    heat.limit = critical ? critical : high;
    heat.usual = usualOf(evidence, courseName(sensor));
    const auto alarm = text(sensor, "alarm");
    heat.isUnusual = heat.usual && value - *heat.usual >= unusual && value >= warm;
    heat.isHot = (critical && value >= *critical - nearCritical) || (high && value >= *high - nearHigh)
        || (!heat.limit && value >= hotAnyway) || alarm == "high" || alarm == "critical";
    heat.weight = value - heat.limit.value_or(hotAnyway + nearCritical);
    return heat;
}

/// The hottest first, by how near each is to its limit.
std::vector<Heat> heats(const Evidence& evidence)
{
    std::vector<Heat> all;
    if (evidence.sensors.is_array()) {
        for (const Value& sensor : evidence.sensors) {
            const auto value = number(sensor, "value");
            if (value && text(sensor, "kind") == "temperature" && text(sensor, "alarm") != "fault") {
                all.push_back(heatOf(evidence, sensor, *value));
            }
        }
    }
    std::stable_sort(all.begin(), all.end(), [](const Heat& a, const Heat& b) { return a.weight > b.weight; });
    return all;
}

std::string limitText(const Heat& heat)
{
    if (!heat.limit) {
        return "; its limit is not known";
    }
    const double below = *heat.limit - heat.value;
    return below >= 0 ? fmt::format(", {} below its limit of {}", degreesText(below), degreesText(*heat.limit))
                      : fmt::format(", {} above its limit of {}", degreesText(-below), degreesText(*heat.limit));
}

void addHeat(const Evidence& evidence, const Heat& heat, Verdict& verdict)
{
    constexpr double aLittle = 5; // °C less is still the same heat
    const auto lasting = lastingOf(evidence, courseName(*heat.sensor), heat.value - aLittle);
    std::string words = fmt::format(
        "{} {} at {}{}", nameOf(*heat.sensor), tense(evidence, "is", "was"), degreesText(heat.value), limitText(heat));
    if (heat.isUnusual) {
        words += fmt::format("; {} {} usual for it", degreesText(*heat.usual), tense(evidence, "is", "was"));
    }
    verdict.causes.push_back(
        {words + lastingText(evidence, lasting) + ".", lasting ? std::optional(lasting->since) : std::nullopt});
}

std::vector<const Value*> fansOf(const Evidence& evidence)
{
    std::vector<const Value*> fans;
    if (evidence.sensors.is_array()) {
        for (const Value& sensor : evidence.sensors) {
            if (text(sensor, "kind") == "fan" && number(sensor, "value")) {
                fans.push_back(&sensor);
            }
        }
    }
    return fans;
}

std::string rpmText(double rpm) { return fmt::format("{:.0f} rpm", rpm); }

void addFans(const Evidence& evidence, Verdict& verdict)
{
    const auto fans = fansOf(evidence);
    if (fans.empty()) {
        verdict.notKnown.emplace_back("how fast the fans turn (none tells its speed)");
        return;
    }
    const Value* fastest = *std::max_element(fans.begin(), fans.end(),
        [](const auto* a, const auto* b) { return *number(*a, "value") < *number(*b, "value"); });
    const double rpm = *number(*fastest, "value");
    verdict.remarks.push_back(rpm > 0
            ? fmt::format("{} {} at {}.", nameOf(*fastest), tense(evidence, "turns", "turned"), rpmText(rpm))
            : fmt::format("The fans {} still.", tense(evidence, "stand", "stood")));
}

/// The most that any sensor of power tells, which is the processors' package where there is one.
void addPower(const Evidence& evidence, Verdict& verdict)
{
    constexpr double worthTelling = 10; // W
    if (!evidence.sensors.is_array()) {
        return;
    }
    const Value* most = nullptr;
    for (const Value& sensor : evidence.sensors) {
        const double watts = text(sensor, "kind") == "power" ? number(sensor, "value").value_or(0) : 0;
        if (watts >= worthTelling && (!most || watts > *number(*most, "value"))) {
            most = &sensor;
        }
    }
    if (most) {
        verdict.remarks.push_back(
            fmt::format("{} {} {:.0f} W.", nameOf(*most), tense(evidence, "takes", "took"), *number(*most, "value")));
    }
}

/// What the heat or the noise comes from.
void addOrigin(const Evidence& evidence, Verdict& verdict)
{
    if (addLoad(evidence, verdict)) {
        addRecent(evidence, "processor time of programs", verdict);
    } else if (const auto busy = figureAt(evidence.machine, {"cpu", "busy"})) {
        verdict.remarks.push_back(fmt::format("Programs do not explain it: the processors {} only {} busy.",
            tense(evidence, "are", "were"), shareText(*busy)));
    }
}

} // namespace

void judgeHot(const Evidence& evidence, Verdict& verdict)
{
    constexpr std::size_t most = 3;
    const auto all = heats(evidence);
    if (all.empty()) {
        verdict.isKnown = false;
        verdict.notKnown.emplace_back("how hot anything is (no sensor of this machine tells a temperature)");
        addLoad(evidence, verdict);
        return;
    }
    for (const Heat& heat : all) {
        if ((heat.isHot || heat.isUnusual) && verdict.causes.size() < most) {
            addHeat(evidence, heat, verdict);
        }
    }
    if (!verdict.causes.empty()) {
        addOrigin(evidence, verdict);
        addPower(evidence, verdict);
        addFans(evidence, verdict);
        return;
    }
    verdict.remarks.push_back(fmt::format("The nearest to its limit {} {} with {}{}.", tense(evidence, "is", "was"),
        nameOf(*all.front().sensor), degreesText(all.front().value), limitText(all.front())));
}

void judgeLoud(const Evidence& evidence, Verdict& verdict)
{
    const auto fans = fansOf(evidence);
    if (fans.empty()) {
        verdict.isKnown = false;
        verdict.notKnown.emplace_back("how fast the fans turn (none tells its speed)");
    }
    for (const Value* fan : fans) {
        const double rpm = *number(*fan, "value");
        const auto usual = usualOf(evidence, courseName(*fan));
        const auto highest = number(*fan, "high") ? number(*fan, "high") : number(*fan, "highest");
        const bool isFaster = usual && rpm >= fasterThanUsual * *usual && rpm >= *usual + leastFaster;
        const bool isFull = highest && *highest > leastFaster && rpm >= nearlyFull * *highest && !usual;
        if (!isFaster && !isFull) {
            continue;
        }
        const auto lasting = lastingOf(evidence, courseName(*fan), usual ? (rpm + *usual) / 2 : nearlyFull * rpm);
        std::string words = fmt::format("{} {} at {}", nameOf(*fan), tense(evidence, "turns", "turned"), rpmText(rpm));
        words += usual ? fmt::format("; {} {} usual for it", rpmText(*usual), tense(evidence, "are", "were")) : "";
        words += highest ? fmt::format(", {} the most ever seen or allowed", rpmText(std::max(rpm, *highest))) : "";
        verdict.causes.push_back(
            {words + lastingText(evidence, lasting) + ".", lasting ? std::optional(lasting->since) : std::nullopt});
    }
    if (verdict.causes.empty()) {
        if (!fans.empty()) {
            addFans(evidence, verdict);
        }
        return;
    }
    if (const auto all = heats(evidence); !all.empty()) {
        verdict.remarks.push_back(fmt::format("The hottest {} {} with {}{}.", tense(evidence, "is", "was"),
            nameOf(*all.front().sensor), degreesText(all.front().value), limitText(all.front())));
    }
    addOrigin(evidence, verdict);
}

namespace {

/// The machine's own batteries together, or the one that speaks for it.
const Value* mainBattery(const Evidence& evidence)
{
    if (const Value* total = find(evidence.battery, "total")) {
        return total;
    }
    const Value* all = find(evidence.battery, "batteries");
    const auto primary = text(evidence.battery, "primary");
    if (!all || !all->is_array()) {
        return nullptr;
    }
    for (const Value& each : *all) {
        if (!primary || text(each, "key") == primary) {
            return &each;
        }
    }
    return nullptr;
}

/// What the battery gave in the middle of the time in which it was drained, W.
std::optional<double> usualDrain(const Evidence& evidence)
{
    const auto found = evidence.courses.find("battery/power.value/day");
    if (found == evidence.courses.end()) {
        return std::nullopt;
    }
    Evidence drained;
    Course& course = drained.courses["drain"];
    for (const auto& [time, watts] : found->second.points) {
        if (watts < 0) {
            course.points.emplace_back(time, -watts);
        }
    }
    return usualOf(drained, "drain");
}

/// What applications take of the energy that is accounted to programs.
void addEnergy(const Evidence& evidence, Verdict& verdict)
{
    constexpr double leastScore = 3; // of 100 for a core
    double sum = 0;
    for (const Consumer& each : evidence.energy) {
        sum += each.amount;
    }
    if (sum < leastScore) {
        verdict.remarks.emplace_back(evidence.energy.empty()
                ? "Which programs take it is not known."
                : "Programs take next to nothing: what is drained goes to the rest of the machine.");
        return;
    }
    Consumers shares;
    for (const Consumer& each : evidence.energy) {
        shares.push_back({each.name, 100 * each.amount / sum});
    }
    const std::string who = consumersText(shares, shareText, 5);
    if (!who.empty()) {
        verdict.remarks.push_back(fmt::format("Of the energy that programs {}, most {} to {}.",
            tense(evidence, "take", "took"), tense(evidence, "goes", "went"), who));
    }
}

} // namespace

void judgeDraining(const Evidence& evidence, Verdict& verdict)
{
    const Value* battery = mainBattery(evidence);
    if (!battery) {
        verdict.isKnown = false;
        verdict.notKnown.emplace_back("the charge: this machine has no battery that tells it, or none was recorded");
        return;
    }
    constexpr int draining = 2;
    const auto charge = number(*battery, "percentage");
    const auto power = number(*battery, "power");
    const auto state = integer(*battery, "state");
    const auto source = integer(*battery, "source");
    const bool drains = state ? *state == draining : source ? *source == 0 : power.value_or(0) < 0;
    if (!drains) {
        verdict.remarks.push_back(fmt::format("The battery {} not drained{}.", tense(evidence, "is", "was"),
            charge ? fmt::format("; it {} at {}", tense(evidence, "is", "was"), shareText(*charge)) : ""));
        return;
    }
    const auto usual = usualDrain(evidence);
    const double watts = power ? std::abs(*power) : 0;
    const auto minutes = number(*battery, "time");
    const bool isMuch = usual && watts >= moreThanUsual * *usual;
    std::string words = power ? fmt::format("The battery {} {:.1f} W", tense(evidence, "gives", "gave"), watts)
                              : fmt::format("The machine {} on battery", tense(evidence, "runs", "ran"));
    words += usual ? fmt::format("; {:.1f} W {} usual", *usual, tense(evidence, "are", "were")) : "";
    words += charge ? fmt::format(". At {}", shareText(*charge)) : "";
    words += charge && minutes && *minutes >= 0 ? " it will be empty in " + formatSpan(*minutes * 60)
        : charge                                ? " how long it lasts is not known"
                                                : "";
    if (integer(*battery, "source") == 1) {
        words += ". It drains although the adapter is connected: that gives too little";
    }
    const auto since = number(*battery, "sourceTime");
    const bool standsOut = isMuch || (minutes && *minutes >= 0 && *minutes <= shortRest) || !usual;
    if (standsOut) {
        verdict.causes.push_back({words + ".", since});
    } else {
        verdict.remarks.push_back(words + ".");
    }
    addEnergy(evidence, verdict);
    addLoad(evidence, verdict);
    if (!usual) {
        verdict.notKnown.emplace_back("how many watts are usual");
    }
}

} // namespace meridal
