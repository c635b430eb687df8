// SPDX-License-Identifier: Apache-2.0
#include "daemon/ConfigurationCheck.h"

#include "base/Text.h"
#include "base/Value.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>

namespace meridal {

namespace {

constexpr std::size_t longestCheckedName = 200;
constexpr std::string_view blankCharacters = " \t";

/// A decimal number that is all of the text. No from_chars: macOS's library has none for them.
std::optional<double> decimalFrom(std::string_view text)
{
    const bool isDecimal = !text.empty() && text.size() < 32
        && text.find_first_not_of("0123456789.-+") == std::string_view::npos; // no "nan", "0x10" or "1e400"
    const std::string digits(text);
    char* end = nullptr;
    const double figure = isDecimal ? std::strtod(digits.c_str(), &end) : 0;
    return isDecimal && end == digits.c_str() + digits.size() ? std::optional(figure) : std::nullopt;
}

/// The last word, which is taken off the text.
std::string_view takeLastWord(std::string_view& text)
{
    const std::size_t end = text.find_last_not_of(blankCharacters);
    text = text.substr(0, end == std::string_view::npos ? 0 : end + 1);
    const std::size_t blank = text.find_last_of(blankCharacters);
    const std::string_view word = text.substr(blank == std::string_view::npos ? 0 : blank + 1);
    text.remove_suffix(word.size());
    return word;
}

/// One of the two limits in a line.
struct WrittenLimit {
    std::optional<double> figure; ///< absent: none
    bool isBelow = false;
};

std::optional<WrittenLimit> limitFrom(std::string_view word)
{
    if (word == "-") {
        return WrittenLimit();
    }
    WrittenLimit limit;
    limit.isBelow = word.starts_with('<');
    word.remove_prefix(limit.isBelow || word.starts_with('>') ? 1 : 0);
    limit.figure = decimalFrom(word);
    return limit.figure ? std::optional(limit) : std::nullopt;
}

} // namespace

std::string takeNumber(std::string_view text, const NumberBounds& bounds, double& now)
{
    std::string_view digits = text;
    if (const std::string unit = lowercase(bounds.unit); digits.ends_with(unit)) {
        digits.remove_suffix(unit.size());
    }
    digits = digits.substr(0, digits.find_last_not_of(blankCharacters) + 1);
    const auto given = decimalFrom(digits);
    if (!given || *given < bounds.least || *given > bounds.most) {
        return fmt::format("is no figure from {:.0f} to {:.0f}{}{}; it stays as it was", bounds.least, bounds.most,
            bounds.unit.empty() ? "" : " ", bounds.unit);
    }
    now = *given;
    return {};
}

std::string takeSensorLimits(std::string_view text, std::vector<Configuration::SensorLimits>& sensors)
{
    if (text.empty()) {
        sensors.clear();
        return {};
    }
    std::string_view name = text;
    const auto critical = limitFrom(takeLastWord(name));
    const auto warning = limitFrom(takeLastWord(name));
    name = name.substr(0, name.find_last_not_of(blankCharacters) + 1);
    if (!critical || !warning || name.empty() || name.size() > longestCheckedName) {
        return "is no sensor with two limits, such as TBCC 80 95, Left <500 <300 or Core 0 80 -";
    }
    if (!critical->figure && !warning->figure) {
        return "has no limit; ignore = SENSOR is for what is not to be looked at";
    }
    const bool isBelow = warning->figure ? warning->isBelow : critical->isBelow;
    if (critical->figure && warning->figure) {
        if (critical->isBelow != warning->isBelow) {
            return "has limits on both sides, each of which takes a line of two";
        }
        if (isBelow ? *critical->figure > *warning->figure : *critical->figure < *warning->figure) {
            return "would be critical before there is a warning";
        }
    }
    auto entry = std::find_if(sensors.begin(), sensors.end(), [name](const auto& each) { return each.sensor == name; });
    if (entry == sensors.end()) {
        if (sensors.size() >= mostCheckedSensors) {
            return fmt::format("is one sensor more than the {} that can be said", mostCheckedSensors);
        }
        entry = sensors.insert(sensors.end(), {.sensor = std::string(name)});
    }
    (isBelow ? entry->warningBelow : entry->warningAbove) = warning->figure;
    (isBelow ? entry->criticalBelow : entry->criticalAbove) = critical->figure;
    return {};
}

std::string takeIgnored(std::string_view name, std::vector<std::string>& ignored)
{
    if (name.empty()) {
        ignored.clear();
        return {};
    }
    if (name.size() > longestCheckedName) {
        return "is too long for a name";
    }
    if (std::find(ignored.begin(), ignored.end(), name) == ignored.end()) {
        if (ignored.size() >= mostIgnored) {
            return fmt::format("is one more than the {} that can be said", mostIgnored);
        }
        ignored.emplace_back(name);
    }
    return {};
}

bool isProgramPath(std::string_view text)
{
    constexpr std::size_t longestPath = 4096;
    return text.starts_with('/') && text.size() < longestPath && text.find('\0') == std::string_view::npos;
}

bool isMailAddress(std::string_view text)
{
    constexpr std::size_t longestAddress = 254;
    const auto isPlain = [](char letter) {
        const auto code = static_cast<unsigned char>(letter);
        return std::isalnum(code) != 0
            || (code < 0x80 && std::string_view("@.!#$%&'*+/=?^_`{|}~-").find(letter) != std::string_view::npos);
    };
    return !text.empty() && text.size() <= longestAddress && text.front() != '-' && text.front() != '@'
        && text.back() != '@' && std::count(text.begin(), text.end(), '@') <= 1
        && std::all_of(text.begin(), text.end(), isPlain);
}

Dictionary describeCheck(const Configuration::Check& check)
{
    Value sensors = Value::array();
    for (const Configuration::SensorLimits& limits : check.sensors) {
        Dictionary entry = {{"sensor", limits.sensor}};
        put(entry, "warningAbove", limits.warningAbove);
        put(entry, "criticalAbove", limits.criticalAbove);
        put(entry, "warningBelow", limits.warningBelow);
        put(entry, "criticalBelow", limits.criticalBelow);
        sensors.push_back(std::move(entry));
    }
    Dictionary told = {{"diskWearWarning", check.diskWearWarning}, {"diskWearCritical", check.diskWearCritical},
        {"diskErrorsWarning", check.diskErrorsWarning}, {"batteryHealthWarning", check.batteryHealthWarning},
        {"upsChargeCritical", check.upsChargeCritical}, {"sensors", std::move(sensors)}, {"ignore", check.ignore}};
    put(told, "diskTemperatureWarning", check.diskTemperatureWarning);
    put(told, "diskTemperatureCritical", check.diskTemperatureCritical);
    return told;
}

Dictionary describeAlerts(const Configuration::Alerts& alerts)
{
    return {{"command", alerts.command}, {"mail", alerts.mail}, {"desktop", alerts.desktop}, {"after", alerts.after},
        {"every", alerts.every}};
}

} // namespace meridal
