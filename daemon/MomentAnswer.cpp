// SPDX-License-Identifier: Apache-2.0
#include "daemon/MomentAnswer.h"

#include "base/Text.h"
#include "daemon/MomentApplications.h"
#include "daemon/MomentFigures.h"
#include "daemon/MomentState.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>

namespace meridal {

namespace {

constexpr std::size_t mostChangesTold = 40;

/// Totals of periods that the moment lies in: those that ended before it are over.
bool isThen(const BandwidthTotal& total, double time) { return total.start <= time && total.end > time; }

/// The account's bytes of ten minutes, and the rates of the machine's own figures, by interface.
Value describeNetwork(const MomentRecord& record, const Value& rates)
{
    Value list = Value::array();
    for (const BandwidthTotal& total : record.interfaces ? record.interfaces->totals : std::vector<BandwidthTotal>()) {
        if (!isThen(total, record.time) || !total.name) {
            continue;
        }
        Value entry{{"interface", validUtf8(*total.name)}, {"from", total.start}, {"until", total.end},
            {"received", total.amount.download}, {"sent", total.amount.upload}};
        const auto stations = record.stations.find(*total.name);
        for (const BandwidthTotal& station :
            stations != record.stations.end() ? stations->second.totals : std::vector<BandwidthTotal>()) {
            if (station.bssid && isThen(station, record.time)) {
                entry["wifi"] = validUtf8(station.name.value_or(""));
                entry["station"] = validUtf8(*station.bssid);
            }
        }
        list.push_back(std::move(entry));
    }
    for (Value rate : rates) {
        const Value name = rate["interface"];
        rate.erase("interface");
        const auto same =
            std::find_if(list.begin(), list.end(), [&](const Value& entry) { return entry["interface"] == name; });
        if (same != list.end()) {
            (*same)["rates"] = std::move(rate);
        } else {
            list.push_back({{"interface", name}, {"rates", std::move(rate)}});
        }
    }
    return list;
}

void addNetworkChanges(const MomentRecord& record, Value& changes)
{
    for (const auto& [interface, answer] : record.stations) {
        for (const BandwidthTotal& station : answer.totals) {
            // A period that does not begin with the ten minutes begins with the network.
            constexpr double grid = 600;
            const bool isNew = std::fmod(station.start, grid) > 1;
            if (station.bssid && isNew && record.time - station.start <= HistoryMoment::minutesAround) {
                const std::string name = station.name.value_or("");
                changes.push_back({{"time", station.start},
                    {"what",
                        validUtf8(interface) + " joined "
                            + (name.empty() ? "a hidden network" : "\"" + validUtf8(name) + "\"")}});
            }
        }
    }
}

/// The source of each battery then, as the latest change before it left it.
Value describeBattery(const MomentRecord& record)
{
    Value batteries = Value::array();
    for (const BatteryRow& row : record.sources ? record.sources->rows : std::vector<BatteryRow>()) { // newest first
        const bool isKnown =
            std::any_of(batteries.begin(), batteries.end(), [&](const Value& each) { return each["key"] == row.key; });
        if (row.time <= record.time && !isKnown) {
            batteries.push_back({{"key", row.key}, {"source", static_cast<int>(row.value)}, {"since", row.time}});
        }
    }
    return batteries;
}

Value describeChanges(const MomentRecord& record)
{
    Value changes = Value::array();
    addEvents(record, changes);
    addNetworkChanges(record, changes);
    addFigureChanges(record, changes);
    addApplicationChanges(record, changes);
    if (changes.size() > mostChangesTold) {
        changes.erase(changes.begin() + static_cast<std::ptrdiff_t>(mostChangesTold), changes.end());
    }
    std::stable_sort(changes.begin(), changes.end(),
        [](const Value& a, const Value& b) { return a["time"].get<double>() < b["time"].get<double>(); });
    return changes;
}

void addUnknown(Value& answer, const char* what, std::string why)
{
    answer["unknown"].push_back({{"what", what}, {"why", std::move(why)}});
}

bool lacks(const Value& answer, const char* entry)
{
    const Value* found = find(answer, entry);
    return !found || found->empty();
}

bool hasSeries(const MomentRecord& record, const char* collector, const char* unit)
{
    return std::any_of(record.series.begin(), record.series.end(), [&](const MomentSeries& each) {
        return each.collector == collector && (each.series.unit == unit || *unit == '\0');
    });
}

/// What was not told although a machine may have it, and why.
void addGaps(const MomentRecord& record, const MomentState& state, Value& answer)
{
    const std::string why = whyNothingIsKnown(record, state);
    const bool isMeasured = !lacks(answer, "cpu") || !lacks(answer, "memory");
    if (!isMeasured) {
        addUnknown(answer, "figures", why);
    }
    struct Part {
        const char* entry;
        const char* what;
        const char* collector;
        const char* unit;
    };
    for (const Part& part : {Part{"pressure", "pressure", "pressure", ""}, Part{"disks", "disks", "throughput", ""},
             Part{"temperatures", "temperatures", "sensors", "°C"}, Part{"fans", "fans", "sensors", "rpm"}}) {
        if (lacks(answer, part.entry)) {
            const bool isKept = hasSeries(record, part.collector, part.unit);
            if (!isKept || isMeasured) {
                addUnknown(
                    answer, part.what, isKept ? "not measured then" : "nothing of it is recorded on this machine");
            }
        }
    }
    if (!record.boots) {
        addUnknown(answer, "boots and sleeps", "the record cannot be read now");
    }
    if (lacks(answer, "network")) {
        addUnknown(answer, "network",
            record.interfaces ? isMeasured ? "at most 100 KiB in ten minutes, which is not recorded" : why
                              : "the record cannot be read now");
    }
    if (lacks(answer, "applications")) {
        addUnknown(answer, "applications",
            !record.keepsApplications ? "applications are not recorded"
                : !record.then        ? "the record cannot be read now"
                : isMeasured          ? "not recorded then, or only those of other users"
                                      : why);
    } else if (lacks(answer, "processes")) {
        constexpr double noted = 90; // s, after which a minute's list is in the record
        addUnknown(answer, "processes",
            record.now - record.time < noted ? "the largest of a minute are noted when it is over"
                                             : "they are kept for two days, and only the largest of each minute");
    }
}

} // namespace

Value describeMoment(const MomentRecord& record)
{
    const MomentState state = momentState(record);
    Value answer{{"time", record.time}, {"known", describeExtent(record)}, {"boot", describe(state)},
        {"unknown", Value::array()}};
    const bool wasAwake = state.isOn != false && state.isAsleep != true;
    static const MomentRecord nothing = {};
    addFigures(wasAwake ? record : nothing, answer);
    answer["network"] = describeNetwork(record, answer.value("rates", Value::array()));
    answer.erase("rates");
    if (Value battery = describeBattery(record); !battery.empty()) {
        answer["battery"] = std::move(battery);
    }
    addApplications(record, answer);
    answer["changes"] = describeChanges(record);
    addGaps(record, state, answer);
    return answer;
}

} // namespace meridal
