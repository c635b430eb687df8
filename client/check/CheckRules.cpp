// SPDX-License-Identifier: Apache-2.0
#include "client/check/CheckRules.h"

#include "base/Text.h"
#include "client/check/CheckWords.h"
#include "wire/BatteryCodes.h"

#include <fmt/format.h>

#include <algorithm>

namespace meridal {

namespace {

constexpr int conditionPoor = static_cast<int>(BatteryCondition::Poor);
constexpr int conditionToCheck = static_cast<int>(BatteryCondition::CheckBattery);
constexpr int conditionFailed = static_cast<int>(BatteryCondition::PermanentFailure);

void addBattery(CheckedTopic& topic, const Value& battery, const CheckLimits& limits)
{
    const std::string key = text(battery, "key").value_or("");
    const std::string name = printable(text(battery, "name").value_or(key));
    if (limits.isIgnored({key, text(battery, "name").value_or("")})) {
        return;
    }
    topic.things.insert(key);
    const auto add = [&](const char* aspect, CheckState state, std::string words) {
        topic.findings.push_back({key, aspect, state, name, std::move(words)});
    };
    const auto charge = number(battery, "percentage");
    const auto health = number(battery, "health");
    const bool isUPS = integer(battery, "type") == static_cast<int>(BatteryType::UPS);
    const bool isDraining = integer(battery, "state") == static_cast<int>(BatteryState::Draining);
    if (const auto condition = integer(battery, "condition"); condition == conditionFailed) {
        add("condition", CheckState::Critical, "has failed for good");
    } else if (condition == conditionToCheck || condition == conditionPoor) {
        add("condition", CheckState::Warning, condition == conditionPoor ? "is in poor condition" : "needs a check");
    }
    if (health && *health < limits.batteryHealthWarning) {
        add("health", CheckState::Warning, fmt::format("holds {:.0f} % of what it was made for", *health));
    }
    if (isUPS && (isDraining || integer(battery, "source") == static_cast<int>(BatterySource::Battery))) {
        const bool isLow = charge && *charge <= limits.upsChargeCritical;
        add("source", isLow ? CheckState::Critical : CheckState::Warning,
            "the machine runs on it" + (charge ? fmt::format(", {:.0f} % left", *charge) : ""));
    }
    if (charge) {
        topic.figures.push_back({.label = name + "_charge", .value = *charge, .unit = "%"});
    }
    if (health) {
        topic.figures.push_back({.label = name + "_health",
            .value = *health,
            .unit = "%",
            .warning = limits.batteryHealthWarning,
            .isBelow = true});
    }
}

void addRecordFindings(CheckedTopic& topic, const Value& databases)
{
    const auto add = [&topic](const char* aspect, const std::string& words) {
        topic.findings.push_back({"meridald", aspect, CheckState::Warning, "meridald", words});
    };
    if (const auto failing = number(databases, "failing"); failing && *failing > 0) {
        add("files", fmt::format("{:.0f} of its files cannot be written now", *failing));
    }
    if (const auto dropped = number(databases, "statementsDropped"); dropped && *dropped > 0) {
        add("rows", fmt::format("has given up {:.0f} rows that could not be written", *dropped));
    }
    if (const auto damaged = number(databases, "filesSetAside"); damaged && *damaged > 0) {
        add("damage",
            fmt::format("has put aside {} of its record, damaged or of another layout",
                countOf(*damaged, "file or table", "files or tables")));
    }
}

} // namespace

CheckLimits::CheckLimits(const Value& status)
{
    const Value* configuration = find(status, "configuration");
    const Value* check = configuration ? find(*configuration, "check") : nullptr;
    if (!check) {
        return;
    }
    const auto take = [check](const char* key, double& limit) { limit = number(*check, key).value_or(limit); };
    take("diskWearWarning", diskWearWarning);
    take("diskWearCritical", diskWearCritical);
    take("diskErrorsWarning", diskErrorsWarning);
    take("batteryHealthWarning", batteryHealthWarning);
    take("upsChargeCritical", upsChargeCritical);
    diskTemperatureWarning = number(*check, "diskTemperatureWarning");
    diskTemperatureCritical = number(*check, "diskTemperatureCritical");
    if (const Value* sensors = find(*check, "sensors"); sensors && sensors->is_array()) {
        sensors_ = *sensors;
    }
    if (const Value* ignored = find(*check, "ignore"); ignored && ignored->is_array()) {
        for (const Value& name : *ignored) {
            ignored_.push_back(name.is_string() ? name.get<std::string>() : "");
        }
    }
}

bool CheckLimits::isIgnored(const std::vector<std::string>& names) const
{
    return std::any_of(names.begin(), names.end(), [this](const std::string& name) {
        return !name.empty() && std::find(ignored_.begin(), ignored_.end(), name) != ignored_.end();
    });
}

const Value* CheckLimits::sensorLimits(const std::vector<std::string>& names) const
{
    for (const Value& each : sensors_) {
        const auto sensor = text(each, "sensor");
        if (sensor && std::find(names.begin(), names.end(), *sensor) != names.end()) {
            return &each;
        }
    }
    return nullptr;
}

CheckedTopic checkBatteries(const Value& state, const CheckLimits& limits)
{
    CheckedTopic topic = topicNamed("battery");
    const Value* batteries = find(state, "batteries");
    if (!batteries || !batteries->is_array()) {
        return withoutAnswer(std::move(topic));
    }
    for (const Value& battery : *batteries) {
        addBattery(topic, battery, limits);
    }
    topic.summary = countOf(static_cast<double>(batteries->size()), "battery", "batteries");
    return topic;
}

CheckedTopic checkDaemon(const Value& status)
{
    CheckedTopic topic = topicNamed("daemon");
    if (!status.is_object()) {
        return withoutAnswer(std::move(topic));
    }
    topic.things.insert("meridald");
    topic.summary = "meridald " + printable(text(status, "release").value_or("answers"));
    if (const Value* databases = find(status, "databases")) {
        addRecordFindings(topic, *databases);
    }
    const Value* configuration = find(status, "configuration");
    const Value* warnings = configuration ? find(*configuration, "warnings") : nullptr;
    if (warnings && warnings->is_array() && !warnings->empty()) {
        const Value& first = warnings->front();
        const auto line = integer(first, "line");
        topic.findings.push_back({"meridald", "configuration", CheckState::Warning, "meridald",
            fmt::format("{} of its configuration not understood, {}{}: {}",
                countOf(static_cast<double>(warnings->size()), "line", "lines"),
                printable(text(first, "file").value_or("")), line ? fmt::format(":{}", *line) : "",
                printable(text(first, "text").value_or("")))});
    }
    if (const Value* limitations = find(status, "limitations"); limitations && limitations->is_object()) {
        for (const auto& [key, reason] : limitations->items()) {
            topic.notes.push_back("cannot measure " + printable(key) + ": "
                + printable(reason.is_string() ? reason.get<std::string>() : serialise(reason)));
        }
        if (!limitations->empty()) {
            topic.summary += ", " + countOf(static_cast<double>(limitations->size()), "limitation", "limitations");
        }
    }
    return topic;
}

CheckReport checkAll(const CheckSources& sources, const std::vector<std::string>& topics)
{
    constexpr double settlingTime = 180; // s; disks are found and read after a minute, if nobody asks
    const CheckLimits limits(sources.status);
    const bool isSettling = number(sources.status, "uptime").value_or(settlingTime) < settlingTime;
    CheckReport report;
    for (const std::string_view topic : checkTopics) {
        if (std::find(topics.begin(), topics.end(), topic) == topics.end()) {
            continue;
        }
        report.topics.push_back(topic == "disks" ? checkDisks(sources.disks, limits)
                : topic == "sensors"             ? checkSensors(sources.sensors, limits)
                : topic == "fans"                ? checkFans(sources.sensors, limits)
                : topic == "battery"             ? checkBatteries(sources.battery, limits)
                                                 : checkDaemon(sources.status));
        report.topics.back().isSettling = isSettling;
    }
    return report;
}

} // namespace meridal
