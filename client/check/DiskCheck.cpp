// SPDX-License-Identifier: Apache-2.0
#include "base/Text.h"
#include "client/check/CheckRules.h"
#include "client/check/CheckWords.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace meridal {

namespace {

/// What an NVMe disk says of itself, by bit.
struct DiskWarning {
    unsigned bit;
    CheckState state;
    const char* text;
};

constexpr DiskWarning diskWarnings[] = {
    {1, CheckState::Critical, "its spare memory is used up; copy the data while it can be read"},
    {2, CheckState::Warning, "it is too hot or too cold by its own limits"},
    {4, CheckState::Critical, "it has become unreliable: too many errors"},
    {8, CheckState::Critical, "it can only be read any more"},
    {16, CheckState::Warning, "what keeps data in flight safe from power cuts has failed"},
    {32, CheckState::Critical, "its persistent memory has become unreliable"},
};

struct Warmth {
    std::optional<double> warning; ///< °C
    std::optional<double> critical;
};

/// What disks of that kind stand; NVMe disks tell their own limits by a bit.
Warmth usualWarmth(const Value& disk)
{
    if (text(disk, "kind") != "ata") {
        return {};
    }
    const Value* spins = find(disk, "spins");
    return spins && *spins == false ? Warmth{70, 80} : Warmth{55, 65};
}

/// Looks at one disk.
class DiskCheck {
public:
    DiskCheck(CheckedTopic& topic, const Value& disk, const CheckLimits& limits)
        : topic_(topic)
        , disk_(disk)
        , limits_(limits)
        , key_(text(disk, "key").value_or(""))
        , name_(printable(text(disk, "bsd").value_or(text(disk, "model").value_or(key_))))
    {
    }

    void look()
    {
        const std::string state = text(disk_, "state").value_or("");
        const bool isRead = number(disk_, "time").has_value();
        topic_.things.insert(key_);
        if (!isRead && (state == "asleep" || state == "unread")) {
            topic_.awaited.insert(key_);
        }
        lookAtAnswer(state, isRead);
        if (isRead) {
            lookAtHealth();
            lookAtWear();
        }
        if (const auto temperature = number(disk_, "temperature"); temperature && state == "awake") {
            lookAtTemperature(*temperature);
        }
    }

private:
    void add(std::string aspect, CheckState state, std::string words, double count = 0)
    {
        topic_.findings.push_back({key_, std::move(aspect), state, name_, std::move(words), count});
    }

    void lookAtAnswer(const std::string& state, bool isRead)
    {
        if (state == "denied") {
            add("answer", CheckState::Unknown, "the daemon has no right to read its health");
        } else if (state == "hanging") {
            add("answer", CheckState::Warning, "it does not answer");
        } else if (state
            == "silent") { // one that made sense before has changed; of others there was never anything to know
            add("answer", isRead ? CheckState::Warning : CheckState::Unknown, "it gives no answer that makes sense");
        }
    }

    void lookAtHealth()
    {
        const bool isFailing = find(disk_, "healthy") && *find(disk_, "healthy") == false;
        const Value* log = find(disk_, "log");
        if (log) {
            lookAtLog(*log);
        }
        bool isExplained = log != nullptr; // an NVMe disk is healthy when no bit is set
        const Value* attributes = find(disk_, "attributes");
        for (const Value& attribute : attributes && attributes->is_array() ? *attributes : Value::array()) {
            isExplained = lookAtAttribute(attribute) == CheckState::Critical || isExplained;
        }
        if (isFailing && !isExplained) {
            add("health", CheckState::Critical, "it predicts that it will fail; copy the data while it can be read");
        }
    }

    void lookAtLog(const Value& log)
    {
        const auto bits = static_cast<unsigned>(std::max<std::int64_t>(0, integer(log, "criticalWarning").value_or(0)));
        for (const DiskWarning& warning : diskWarnings) {
            if ((bits & warning.bit) != 0) {
                add(fmt::format("warning {}", warning.bit), warning.state, warning.text);
            }
        }
        const auto spare = number(log, "availableSpare");
        const auto least = number(log, "spareThreshold");
        if (spare && least && *spare < *least && (bits & diskWarnings[0].bit) == 0) {
            add("spare", CheckState::Critical,
                fmt::format("{:.0f} % of its spare memory are left, at least {:.0f} % should be", *spare, *least));
        }
        if (const auto errors = number(log, "mediaErrors"); errors && *errors >= limits_.diskErrorsWarning) {
            add("errors", CheckState::Warning, countOf(*errors, "error of its memory", "errors of its memory"),
                *errors);
        }
    }

    CheckState lookAtAttribute(const Value& attribute)
    {
        const std::string title = printable(text(attribute, "name").value_or("an attribute"));
        const std::string meaning = printable(text(attribute, "meaning").value_or(""));
        const std::string why = meaning.empty() ? "" : "; " + meaning;
        const std::string aspect = fmt::format("attribute {}", integer(attribute, "id").value_or(0));
        const std::string status = text(attribute, "status").value_or("");
        if (status == "failing") {
            const Value* predicts = find(attribute, "predictsFailure");
            const CheckState state = predicts && *predicts == true ? CheckState::Critical : CheckState::Warning;
            add(aspect, state, title + " is below its threshold" + why);
            return state;
        }
        if (status == "failed before") {
            add(aspect, CheckState::Warning, title + " has been below its threshold" + why);
            return CheckState::Warning;
        }
        // Of those that are fine only counts of what is lost are told.
        const auto value = number(attribute, "value");
        const double lost = value ? *value : number(attribute, "raw").value_or(0);
        if (lost < limits_.diskErrorsWarning) {
            return CheckState::Fine;
        }
        add(aspect, CheckState::Warning, fmt::format("{}: {:.0f}{}", title, lost, why), lost);
        return CheckState::Warning;
    }

    void lookAtWear()
    {
        const auto wear = number(disk_, "wear");
        if (!wear) {
            return;
        }
        topic_.figures.push_back({.label = name_ + "_wear",
            .value = *wear,
            .unit = "%",
            .warning = limits_.diskWearWarning,
            .critical = limits_.diskWearCritical});
        if (const double used = std::round(*wear);
            used >= std::min(limits_.diskWearWarning, limits_.diskWearCritical)) {
            add("wear", used >= limits_.diskWearCritical ? CheckState::Critical : CheckState::Warning,
                fmt::format("{:.0f} % of its rated life is used up", used));
        }
    }

    void lookAtTemperature(double degrees)
    {
        const Warmth usual = usualWarmth(disk_);
        const auto warning = limits_.diskTemperatureWarning ? limits_.diskTemperatureWarning : usual.warning;
        const auto critical = limits_.diskTemperatureCritical ? limits_.diskTemperatureCritical : usual.critical;
        topic_.figures.push_back(
            {.label = name_ + "_temperature", .value = degrees, .warning = warning, .critical = critical});
        const bool isCritical = critical && degrees >= *critical;
        if (isCritical || (warning && degrees >= *warning)) {
            add("temperature", isCritical ? CheckState::Critical : CheckState::Warning,
                fmt::format("{:.0f} °C, from {:.4g} °C on {}", degrees, isCritical ? *critical : *warning,
                    isCritical ? "it is critical" : "it is too warm"));
        }
    }

    CheckedTopic& topic_;
    const Value& disk_;
    const CheckLimits& limits_;
    const std::string key_;
    const std::string name_;
};

} // namespace

CheckedTopic checkDisks(const Value& disks, const CheckLimits& limits)
{
    CheckedTopic topic = topicNamed("disks");
    if (!disks.is_array()) {
        return withoutAnswer(std::move(topic));
    }
    int asleep = 0;
    int unread = 0;
    int ignored = 0;
    for (const Value& disk : disks) {
        const std::string state = text(disk, "state").value_or("");
        if (limits.isIgnored({text(disk, "key").value_or(""), text(disk, "bsd").value_or("")})) {
            ++ignored;
            continue;
        }
        asleep += state == "asleep" ? 1 : 0;
        unread += state != "asleep" && !number(disk, "time") ? 1 : 0;
        DiskCheck(topic, disk, limits).look();
    }
    topic.summary = countOf(static_cast<double>(disks.size()), "disk", "disks");
    for (const auto& [count, words] : {std::pair(asleep, "asleep"), {unread, "not read"}, {ignored, "ignored"}}) {
        topic.summary += count > 0 ? fmt::format(", {} {}", count, words) : "";
    }
    return topic;
}

} // namespace meridal
