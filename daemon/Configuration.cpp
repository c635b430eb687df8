// SPDX-License-Identifier: Apache-2.0
#include "daemon/Configuration.h"

#include "base/Text.h"
#include "daemon/ConfigurationCheck.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <span>
#include <utility>
#include <variant>

namespace meridal {

namespace {

constexpr double oneHour = 3600;
constexpr double oneYear = 365.25 * Configuration::day;

struct SwitchKey {
    bool Configuration::Record::*record = nullptr;
    bool Configuration::*flag = nullptr;
    bool Configuration::Alerts::*alert = nullptr;
};
struct AgeKey {
    double Configuration::Keep::*keep;
};
struct IntervalKey {
    std::optional<double> Configuration::*interval;
    double shortest;
    double longest;
};
struct WordKey {
    std::string Configuration::*word;
    std::span<const std::string_view> words;
};

struct LimitKey {
    double Configuration::Check::*limit;
    NumberBounds bounds;
};
struct OptionalLimitKey {
    std::optional<double> Configuration::Check::*limit;
    NumberBounds bounds;
};
struct LooksKey { };
struct AlertIntervalKey { };
// Of these, capitals are kept
struct SensorKey {
    bool isAsWritten = true;
};
struct IgnoreKey {
    bool isAsWritten = true;
};
struct AlertTextKey {
    std::string Configuration::Alerts::*text;
    bool (*isGood)(std::string_view text);
    const char* expected;
    bool isAsWritten = true;
};

constexpr NumberBounds wearBounds = {.least = 1, .most = 1000, .unit = "%"};
constexpr NumberBounds errorBounds = {.least = 1, .most = 1e9, .unit = ""};
constexpr NumberBounds warmthBounds = {.least = 1, .most = 200, .unit = "°C"};
constexpr NumberBounds chargeBounds = {.least = 0, .most = 100, .unit = "%"};
constexpr NumberBounds lookBounds = {.least = 1, .most = 100, .unit = ""};

constexpr std::array<std::string_view, 3> processSources = {"auto", "bpf", "proc"};
constexpr std::array<std::string_view, 4> trafficSources = {"auto", "bpf", "pcap", "sockets"};

struct KnownKey {
    std::string_view section;
    std::string_view name;
    std::variant<SwitchKey, AgeKey, IntervalKey, WordKey, LimitKey, OptionalLimitKey, LooksKey, AlertIntervalKey,
        SensorKey, IgnoreKey, AlertTextKey>
        target;
};

using Record = Configuration::Record;
using Keep = Configuration::Keep;
using Check = Configuration::Check;
using Alerts = Configuration::Alerts;

/// All that can be said.
const std::array<KnownKey, 29>& configurationKeys()
{
    static const std::array<KnownKey, 29> all = {{
        {"record", "sensors", SwitchKey{.record = &Record::sensors}},
        {"record", "disks", SwitchKey{.record = &Record::disks}},
        {"record", "machine", SwitchKey{.record = &Record::machine}},
        {"record", "applications", SwitchKey{.record = &Record::applications}},
        {"record", "battery", SwitchKey{.record = &Record::battery}},
        {"keep", "application-minutes", AgeKey{&Keep::applicationMinutes}},
        {"keep", "application-quarter-hours", AgeKey{&Keep::applicationQuarterHours}},
        {"keep", "application-hours", AgeKey{&Keep::applicationHours}},
        {"keep", "application-days", AgeKey{&Keep::applicationDays}},
        {"keep", "long-term", AgeKey{&Keep::longTerm}},
        {"processes", "source", WordKey{&Configuration::processSource, processSources}},
        {"processes", "interval", IntervalKey{&Configuration::passInterval, 2, 300}},
        {"traffic", "source", WordKey{&Configuration::trafficSource, trafficSources}},
        {"traffic", "capture", SwitchKey{.flag = &Configuration::capture}},
        {"disks", "read-hidden", SwitchKey{.flag = &Configuration::readHiddenDisks}},
        {"check", "disk-wear-warning", LimitKey{&Check::diskWearWarning, wearBounds}},
        {"check", "disk-wear-critical", LimitKey{&Check::diskWearCritical, wearBounds}},
        {"check", "disk-errors-warning", LimitKey{&Check::diskErrorsWarning, errorBounds}},
        {"check", "disk-temperature-warning", OptionalLimitKey{&Check::diskTemperatureWarning, warmthBounds}},
        {"check", "disk-temperature-critical", OptionalLimitKey{&Check::diskTemperatureCritical, warmthBounds}},
        {"check", "battery-health-warning", LimitKey{&Check::batteryHealthWarning, chargeBounds}},
        {"check", "ups-charge-critical", LimitKey{&Check::upsChargeCritical, chargeBounds}},
        {"check", "sensor", SensorKey{}},
        {"check", "ignore", IgnoreKey{}},
        {"alerts", "command", AlertTextKey{&Alerts::command, isProgramPath, "the path of a program from / on"}},
        {"alerts", "mail", AlertTextKey{&Alerts::mail, isMailAddress, "a mail address"}},
        {"alerts", "desktop", SwitchKey{.alert = &Alerts::desktop}},
        {"alerts", "after", LooksKey{}},
        {"alerts", "every", AlertIntervalKey{}},
    }};
    return all;
}

constexpr std::string_view sectionOfAges = "keep";

std::string_view withoutBlanks(std::string_view text)
{
    constexpr std::string_view blank = " \t\r\v\f";
    const std::size_t first = text.find_first_not_of(blank);
    return first == std::string_view::npos ? std::string_view()
                                           : text.substr(first, text.find_last_not_of(blank) - first + 1);
}

/// A piece of a file in a sentence.
std::string inQuotes(std::string_view text)
{
    constexpr std::size_t longest = 60;
    return '"' + printable(text.substr(0, longest)) + (text.size() > longest ? "...\"" : "\"");
}

/// Letters to add, take or change to make one word of the other.
std::size_t lettersApart(std::string_view first, std::string_view second)
{
    std::vector<std::size_t> row(second.size() + 1);
    for (std::size_t column = 0; column < row.size(); ++column) {
        row[column] = column;
    }
    for (std::size_t line = 0; line < first.size(); ++line) {
        std::size_t diagonal = std::exchange(row[0], line + 1);
        for (std::size_t column = 1; column < row.size(); ++column) {
            const std::size_t changed = diagonal + (first[line] == second[column - 1] ? 0 : 1);
            diagonal = row[column];
            row[column] = std::min({row[column] + 1, row[column - 1] + 1, changed});
        }
    }
    return row.back();
}

/// Which of some words was meant; empty when none is near.
template <typename Words, typename NameOf>
std::string_view nearestWord(std::string_view given, const Words& words, NameOf nameOf)
{
    constexpr std::size_t longestWord = 40;
    std::string_view best;
    std::size_t least = given.size() > longestWord ? 0 : std::max<std::size_t>(1, given.size() / 3) + 1;
    for (const auto& word : words) {
        const std::string_view name = nameOf(word);
        if (const std::size_t away = least == 0 ? 0 : lettersApart(given, name); away < least) {
            best = name;
            least = away;
        }
    }
    return best;
}

std::string didYouMean(std::string_view name)
{
    return name.empty() ? "" : fmt::format("; did you mean \"{}\"?", name);
}

std::optional<bool> switchFrom(const std::string& word)
{
    constexpr std::array<std::string_view, 4> yes = {"yes", "on", "true", "1"};
    constexpr std::array<std::string_view, 4> no = {"no", "off", "false", "0"};
    const bool isYes = std::find(yes.begin(), yes.end(), word) != yes.end();
    return isYes || std::find(no.begin(), no.end(), word) != no.end() ? std::optional(isYes) : std::nullopt;
}

/// "90 s", "14d", "5 years".
std::optional<double> secondsFrom(std::string_view text)
{
    struct Unit {
        std::array<std::string_view, 4> names;
        double seconds;
    };
    constexpr std::array<Unit, 6> units = {{
        {{"s", "sec", "second", "seconds"}, 1},
        {{"min", "m", "minute", "minutes"}, 60},
        {{"h", "hr", "hour", "hours"}, oneHour},
        {{"d", "day", "days", "days"}, Configuration::day},
        {{"w", "week", "weeks", "weeks"}, 7 * Configuration::day},
        {{"y", "year", "years", "years"}, oneYear},
    }};
    std::uint32_t count = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), count);
    const std::string_view name = withoutBlanks(text.substr(static_cast<std::size_t>(end - text.data())));
    const auto unit = std::find_if(units.begin(), units.end(),
        [name](const Unit& each) { return std::find(each.names.begin(), each.names.end(), name) != each.names.end(); });
    return failure == std::errc() && unit != units.end() ? std::optional(count * unit->seconds) : std::nullopt;
}

/// Reads lines into a configuration.
class ConfigurationReader {
public:
    void add(const ConfigurationText& file)
    {
        constexpr std::string_view mark = "\xEF\xBB\xBF";
        file_ = file.file;
        section_.clear();
        isPassedOver_ = false;
        std::string_view rest = file.text;
        rest.remove_prefix(rest.starts_with(mark) ? mark.size() : 0);
        for (line_ = 1; !rest.empty(); ++line_) {
            const std::size_t end = std::min(rest.find('\n'), rest.size());
            take(withoutComment(rest.substr(0, end)));
            rest.remove_prefix(std::min(end + 1, rest.size()));
        }
    }
    ParsedConfiguration finish()
    {
        if (isKeepUncertain_) {
            result_.configuration.keep = keepEverything;
        }
        if (unsaid_ > 0) {
            result_.warnings.push_back(
                {.file = file_, .line = 0, .text = fmt::format("and {} bad lines more", unsaid_)});
        }
        return std::move(result_);
    }

private:
    /// From a # or ; at the start or after a blank on, a line is for people.
    static std::string_view withoutComment(std::string_view line)
    {
        for (std::size_t place = 0; place < line.size(); ++place) {
            const bool isFree = place == 0 || line[place - 1] == ' ' || line[place - 1] == '\t';
            if (isFree && (line[place] == '#' || line[place] == ';')) {
                line = line.substr(0, place);
            }
        }
        return withoutBlanks(line);
    }
    void warn(std::string text)
    {
        if (result_.warnings.size() >= mostConfigurationWarnings) {
            ++unsaid_;
            return;
        }
        result_.warnings.push_back({.file = file_, .line = line_, .text = std::move(text)});
    }
    static bool isAge(std::string_view name)
    {
        return std::any_of(configurationKeys().begin(), configurationKeys().end(),
            [name](const KnownKey& key) { return key.section == sectionOfAges && key.name == name; });
    }
    /// Notes, and says, what follows from a line that may have been about ages.
    std::string agesIf(bool isAboutAges)
    {
        isKeepUncertain_ = isKeepUncertain_ || isAboutAges;
        return isAboutAges ? "; nothing goes for its age until this is mended" : "";
    }
    void take(std::string_view line)
    {
        if (line.empty()) {
            return;
        }
        if (line.front() == '[') {
            return takeSection(line);
        }
        const std::size_t equals = line.find('=');
        if (equals == std::string_view::npos) {
            return warn(inQuotes(line) + " is neither [section] nor key = value" + agesIf(section_ == sectionOfAges));
        }
        const std::string_view key = withoutBlanks(line.substr(0, equals));
        if (!isPassedOver_) {
            takeKey(key, withoutBlanks(line.substr(equals + 1)));
        } else if (isAge(lowercase(key))) { // whatever the section is called
            warnOfUnknown(lowercase(key));
        }
    }
    void takeSection(std::string_view line)
    {
        const bool isClosed = line.back() == ']';
        section_ = lowercase(withoutBlanks(line.substr(1, line.size() - (isClosed ? 2 : 1))));
        isPassedOver_ = !isClosed
            || std::none_of(configurationKeys().begin(), configurationKeys().end(),
                [this](const KnownKey& key) { return key.section == section_; });
        if (isPassedOver_) {
            const auto meant =
                nearestWord(section_, configurationKeys(), [](const KnownKey& key) { return key.section; });
            warn(fmt::format("there is no section {}{}; what stands in it is passed over{}", inQuotes(line),
                didYouMean(meant), agesIf(meant == sectionOfAges)));
            section_.clear();
        }
    }
    void takeKey(std::string_view given, std::string_view value)
    {
        const std::string name = lowercase(given);
        const auto key = std::find_if(configurationKeys().begin(), configurationKeys().end(),
            [&](const KnownKey& each) { return each.section == section_ && each.name == name; });
        if (key == configurationKeys().end()) {
            return warnOfUnknown(name);
        }
        const std::string word = lowercase(value);
        const std::string wrong = std::visit(
            [&](const auto& target) {
                if constexpr (requires { target.isAsWritten; }) {
                    return set(target, std::string(value));
                } else {
                    return set(target, word);
                }
            },
            key->target);
        if (!wrong.empty()) {
            warn(fmt::format("{}: {} {}{}", key->name, value.empty() ? "no value" : inQuotes(value), wrong,
                agesIf(section_ == sectionOfAges)));
        }
    }
    void warnOfUnknown(const std::string& name)
    {
        std::vector<std::string_view> here;
        for (const KnownKey& key : configurationKeys()) {
            if (key.section == section_) {
                here.push_back(key.name);
            }
        }
        const auto meant = nearestWord(name, here, [](std::string_view each) { return each; });
        const auto elsewhere = std::find_if(configurationKeys().begin(), configurationKeys().end(),
            [&](const KnownKey& each) { return each.name == name; });
        const bool isSlip = !meant.empty() && lettersApart(name, meant) == 1; // sensor in [record] is sensors
        if (elsewhere != configurationKeys().end() && !isSlip) {
            return warn(fmt::format("{} belongs below [{}]{}", inQuotes(name), elsewhere->section,
                agesIf(elsewhere->section == sectionOfAges || section_ == sectionOfAges)));
        }
        warn(fmt::format("there is no key {}{}{}{}", inQuotes(name),
            section_.empty() ? "" : fmt::format(" in [{}]", section_), didYouMean(meant),
            agesIf(section_ == sectionOfAges)));
    }

    // Each answers what is wrong; nothing when the value is taken
    std::string set(const SwitchKey& target, const std::string& word)
    {
        const auto given = switchFrom(word);
        Configuration& all = result_.configuration;
        bool& now = target.flag ? all.*target.flag
            : target.alert      ? all.alerts.*target.alert
                                : all.record.*target.record;
        if (!given) {
            return fmt::format("is neither yes nor no; it stays {}", now ? "yes" : "no");
        }
        now = *given;
        return {};
    }
    std::string set(const AgeKey& target, const std::string& word)
    {
        const auto given = secondsFrom(word);
        if (!given || *given < oneHour || *given > Configuration::longestKept) {
            return "is no time from 1 hour to 100 years, such as 14 days";
        }
        result_.configuration.keep.*target.keep = *given;
        return {};
    }
    std::string set(const IntervalKey& target, const std::string& word)
    {
        const auto given = secondsFrom(word);
        if (word != "auto" && (!given || *given < target.shortest || *given > target.longest)) {
            return fmt::format("is neither auto nor a time from {:.0f} s to {:.0f} s", target.shortest, target.longest);
        }
        result_.configuration.*target.interval = given;
        return {};
    }
    std::string set(const WordKey& target, const std::string& word)
    {
        std::string& now = result_.configuration.*target.word;
        if (std::find(target.words.begin(), target.words.end(), word) == target.words.end()) {
            return fmt::format("is none of {}; it stays {}", fmt::join(target.words, ", "), now);
        }
        now = word;
        return {};
    }
    std::string set(const LimitKey& target, const std::string& word)
    {
        return takeNumber(word, target.bounds, result_.configuration.check.*target.limit);
    }
    std::string set(const OptionalLimitKey& target, const std::string& word)
    {
        std::optional<double>& now = result_.configuration.check.*target.limit;
        double given = 0;
        if (word == "auto") {
            now.reset();
            return {};
        }
        std::string wrong = takeNumber(word, target.bounds, given);
        if (wrong.empty()) {
            now = given;
        }
        return wrong;
    }
    std::string set(const LooksKey& /*target*/, const std::string& word)
    {
        return takeNumber(word, lookBounds, result_.configuration.alerts.after);
    }
    std::string set(const AlertIntervalKey& /*target*/, const std::string& word)
    {
        constexpr double shortest = 1;
        const auto given = secondsFrom(word);
        if (!given || *given < shortest || *given > Configuration::day) {
            return "is no time from 1 s to 1 day";
        }
        result_.configuration.alerts.every = *given;
        return {};
    }
    std::string set(const SensorKey& /*target*/, const std::string& line)
    {
        return takeSensorLimits(line, result_.configuration.check.sensors);
    }
    std::string set(const IgnoreKey& /*target*/, const std::string& name)
    {
        return takeIgnored(name, result_.configuration.check.ignore);
    }
    std::string set(const AlertTextKey& target, const std::string& word)
    {
        if (!word.empty() && !target.isGood(word)) {
            return fmt::format("is not {}", target.expected);
        }
        result_.configuration.alerts.*target.text = word;
        return {};
    }

    ParsedConfiguration result_;
    std::string file_;
    std::string section_;
    std::size_t line_ = 0;
    std::size_t unsaid_ = 0;
    bool isPassedOver_ = false;    ///< the section is none of ours
    bool isKeepUncertain_ = false; ///< something that was said about [keep] was not understood
};

} // namespace

std::string lineOf(const ConfigurationWarning& warning)
{
    return warning.line == 0 ? fmt::format("{}: {}", printable(warning.file), warning.text)
                             : fmt::format("{}:{}: {}", printable(warning.file), warning.line, warning.text);
}

ParsedConfiguration parseConfiguration(const std::vector<ConfigurationText>& files)
{
    ConfigurationReader reader;
    for (const ConfigurationText& file : files) {
        reader.add(file);
    }
    return reader.finish();
}

std::vector<std::string> settingsForNextStart(const Configuration& before, const Configuration& now)
{
    std::vector<std::string> changed;
    for (const KnownKey& key : configurationKeys()) {
        const bool isOther = std::visit(
            [&](const auto& target) {
                if constexpr (requires { target.word; }) {
                    return before.*target.word != now.*target.word;
                } else if constexpr (requires { target.flag; }) {
                    return target.flag && before.*target.flag != now.*target.flag;
                } else {
                    return false;
                }
            },
            key.target);
        if (isOther) {
            changed.push_back(fmt::format("{} in [{}]", key.name, key.section));
        }
    }
    return changed;
}

} // namespace meridal
