// SPDX-License-Identifier: Apache-2.0
#include "base/Text.h"
#include "client/check/CheckRules.h"
#include "client/check/CheckWords.h"

#include <fmt/format.h>

#include <utility>

namespace meridal {

namespace {

std::string amount(double value, const std::string& unit)
{
    const int decimals = unit == "V" || unit == "A" ? 3 : unit == "rpm" ? 0 : 1;
    return fmt::format("{:.{}f}{}{}", value, decimals, unit.empty() ? "" : " ", unit);
}

/// Looks at one sensor or fan.
class SensorCheck {
public:
    SensorCheck(CheckedTopic& topic, const Value& sensor)
        : topic_(topic)
        , sensor_(sensor)
        , key_(text(sensor, "key").value_or(""))
        , unit_(printable(text(sensor, "unit").value_or("")))
    {
        const std::string chip = text(sensor, "chip").value_or("");
        const std::string label = text(sensor, "name").value_or(key_);
        const std::string whole = chip.empty() ? label : chip + "/" + label;
        name_ = printable(whole);
        names_ = {key_, label, whole};
    }

    void look(const CheckLimits& limits)
    {
        if (limits.isIgnored(names_)) {
            return;
        }
        topic_.things.insert(key_);
        const Value* own = limits.sensorLimits(names_);
        const auto value = number(sensor_, "value");
        const std::string alarm = text(sensor_, "alarm").value_or("");
        addFigure(value, own);
        if (alarm == "fault") {
            add(CheckState::Warning, "it is broken or not connected");
        } else if (own) {
            lookAtOwnLimits(value, *own);
        } else if (!alarm.empty()) {
            lookAtAlarm(value, alarm);
        }
    }

private:
    bool isFan() const { return text(sensor_, "kind") == "fan"; }
    void add(CheckState state, std::string words)
    {
        topic_.findings.push_back({key_, "value", state, name_, std::move(words)});
    }

    /// What the administrator said goes before what the chip has.
    void lookAtOwnLimits(std::optional<double> value, const Value& own)
    {
        struct Limit {
            const char* key;
            CheckState state;
            bool isBelow;
        };
        constexpr Limit all[] = {{"criticalAbove", CheckState::Critical, false},
            {"criticalBelow", CheckState::Critical, true}, {"warningAbove", CheckState::Warning, false},
            {"warningBelow", CheckState::Warning, true}};
        for (const Limit& limit : all) {
            const auto figure = number(own, limit.key);
            if (figure && value && (limit.isBelow ? *value <= *figure : *value >= *figure)) {
                return add(limit.state,
                    fmt::format("{}, from {} {} it is {}", amount(*value, unit_), amount(*figure, unit_),
                        limit.isBelow ? "downwards" : "on",
                        limit.state == CheckState::Critical ? "critical" : "to warn of"));
            }
        }
    }

    void lookAtAlarm(std::optional<double> value, const std::string& alarm)
    {
        const bool isCritical = alarm == "critical";
        const bool isLow = alarm == "low";
        const auto limit = number(sensor_, isCritical ? "critical" : isLow ? "low" : "high");
        const bool isBeyond = limit && value && (isLow ? *value < *limit : *value > *limit);
        if (isFan() && isLow && value == 0.0) {
            return add(CheckState::Critical,
                "it stands still"
                    + (isBeyond ? fmt::format(", and should turn at {} or more", amount(*limit, unit_)) : ""));
        }
        const std::string figure = value ? amount(*value, unit_) + ", " : "";
        const std::string beyond = isBeyond ? fmt::format("{} its {}limit of {}", isLow ? "below" : "above",
                                       isCritical ? "critical " : "", amount(*limit, unit_))
                                            : "by its chip's own alarm (" + printable(alarm) + ")";
        add(isCritical ? CheckState::Critical : CheckState::Warning, figure + beyond);
    }

    void addFigure(std::optional<double> value, const Value* own)
    {
        const bool isWorthIt = isFan() || text(sensor_, "kind") == "temperature";
        if (!value || !isWorthIt) {
            return;
        }
        CheckFigure figure{.label = name_, .value = *value, .isBelow = isFan()};
        if (own) {
            figure.warning = number(*own, isFan() ? "warningBelow" : "warningAbove");
            figure.critical = number(*own, isFan() ? "criticalBelow" : "criticalAbove");
        } else {
            const Value* isLimit = find(sensor_, "fixed");
            const bool hasLimits = isLimit && *isLimit == true;
            figure.warning = hasLimits ? number(sensor_, isFan() ? "low" : "high") : std::nullopt;
            figure.critical = isFan() ? std::nullopt : number(sensor_, "critical");
        }
        topic_.figures.push_back(std::move(figure));
    }

    CheckedTopic& topic_;
    const Value& sensor_;
    const std::string key_;
    const std::string unit_;
    std::string name_;
    std::vector<std::string> names_;
};

CheckedTopic checkKind(const Value& sensors, const CheckLimits& limits, bool fans)
{
    CheckedTopic topic = topicNamed(fans ? "fans" : "sensors");
    if (!sensors.is_array()) {
        return withoutAnswer(std::move(topic));
    }
    int count = 0;
    for (const Value& sensor : sensors) {
        if ((text(sensor, "kind") == "fan") == fans) {
            ++count;
            SensorCheck(topic, sensor).look(limits);
        }
    }
    topic.summary = fans ? countOf(count, "fan", "fans") : countOf(count, "sensor", "sensors");
    return topic;
}

} // namespace

CheckedTopic checkSensors(const Value& sensors, const CheckLimits& limits) { return checkKind(sensors, limits, false); }

CheckedTopic checkFans(const Value& sensors, const CheckLimits& limits) { return checkKind(sensors, limits, true); }

} // namespace meridal
