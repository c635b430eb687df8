// SPDX-License-Identifier: Apache-2.0
#include "client/views/MomentState.h"

#include "wire/BatteryCodes.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <optional>
#include <string>
#include <utility>

namespace meridal {

namespace {

const Value& momentPart(const Value& from, const char* entry)
{
    static const Value nothing;
    const Value* found = find(from, entry);
    return found ? *found : nothing;
}

double momentFigure(const Value& entry, const char* key) { return number(entry, key).value_or(0); }

void mergeMembers(Value& into, const Value& from)
{
    if (from.is_object()) {
        into.update(from);
    }
}

/// moments.at's account of an application, over so many seconds, as a rate.
ApplicationRate rateOfMoment(const Value& entry, double seconds)
{
    const auto each = [&](const char* one, const char* other) -> std::optional<double> {
        const auto first = number(entry, one);
        const auto second = number(entry, other);
        return first || second ? std::optional((first.value_or(0) + second.value_or(0)) / seconds) : std::nullopt;
    };
    constexpr double hundred = 100;
    ApplicationRate rate{.group = entry,
        .cpu = each("cpuUser", "cpuSystem"),
        .energy = each(number(entry, "joules") ? "joules" : "energyScore", ""),
        .memory = number(entry, "memory"),
        .disk = each("diskRead", "diskWritten"),
        .network = each("received", "sent"),
        .processes = number(entry, "processesPeak")};
    rate.cpu = rate.cpu ? std::optional(*rate.cpu * hundred) : std::nullopt;
    return rate;
}

} // namespace

Value machineOfMoment(const Value& moment)
{
    Value machine{{"cpu", momentPart(moment, "cpu")}, {"pressure", momentPart(moment, "pressure")},
        {"memory", Value::object()}, {"disks", Value::array()}};
    for (const char* part : {"paging", "swap", "memory"}) {
        mergeMembers(machine["memory"], momentPart(moment, part));
    }
    Value& memory = machine["memory"];
    if (!memory.contains("total") && number(memory, "used") && number(memory, "available")) {
        memory["total"] = *number(memory, "used") + *number(memory, "available");
    }
    if (machine["cpu"].is_object()) {
        mergeMembers(machine["cpu"], momentPart(moment, "load"));
    }
    const Value disks = momentPart(moment, "disks");
    for (std::size_t place = 0; disks.is_array() && place < disks.size(); ++place) {
        Value disk = disks[place];
        if (disk.is_object()) {
            disk["name"] = momentPart(disk, "disk");
            machine["disks"].push_back(std::move(disk));
        }
    }
    // By name, as there.
    const auto add = [&](const char* list, const char* name, const char* figures) {
        const Value entries = momentPart(moment, list);
        for (std::size_t place = 0; entries.is_array() && place < entries.size(); ++place) {
            if (const auto which = text(entries[place], name)) {
                machine[list][*which] = *figures != '\0' ? momentPart(entries[place], figures) : entries[place];
            }
        }
    };
    add("gpus", "gpu", "");
    add("network", "interface", "rates");
    return machine;
}

Value sensorsOfMoment(const Value& moment, const Value& listedNow)
{
    constexpr std::array<std::pair<const char*, const char*>, 3> lists = {
        {{"temperatures", "temperature"}, {"fans", "fan"}, {"power", "power"}}};
    Value all = Value::array();
    for (const auto& [list, kind] : lists) {
        const Value readings = momentPart(moment, list);
        for (std::size_t place = 0; readings.is_array() && place < readings.size(); ++place) {
            const Value& reading = readings[place];
            const std::string series = text(reading, "series").value_or("");
            const std::string key = series.substr(series.find('/') + 1);
            Value sensor{{"key", key}, {"name", text(reading, "name").value_or(key)}, {"kind", kind},
                {"unit", momentPart(reading, "unit")}};
            for (std::size_t other = 0; listedNow.is_array() && other < listedNow.size(); ++other) {
                if (text(listedNow[other], "key") == key) {
                    sensor = listedNow[other];
                }
            }
            sensor["value"] = momentPart(reading, "value");
            sensor["alarm"] = nullptr;
            all.push_back(std::move(sensor));
        }
    }
    return all;
}

Value interfacesOfMoment(const Value& moment)
{
    Value all = Value::array();
    const Value network = momentPart(moment, "network");
    for (std::size_t place = 0; network.is_array() && place < network.size(); ++place) {
        const Value& each = network[place];
        const Value rates = momentPart(each, "rates");
        const double span = momentFigure(each, "until") - momentFigure(each, "from");
        Value one{{"interface", text(each, "interface").value_or("")}};
        if (rates.is_object()) {
            one.update(
                {{"downloadRate", momentFigure(rates, "received")}, {"uploadRate", momentFigure(rates, "sent")}});
        } else if (span > 0) {
            one.update({{"downloadRate", momentFigure(each, "received") / span},
                {"uploadRate", momentFigure(each, "sent") / span}});
        }
        all.push_back(std::move(one));
    }
    return all;
}

Value batteryOfMoment(const Value& moment)
{
    Value batteries = Value::array();
    const Value told = momentPart(moment, "battery");
    for (std::size_t place = 0; told.is_array() && place < told.size(); ++place) {
        Value battery = told[place];
        if (battery.is_object()) {
            battery["sourceTime"] = momentPart(battery, "since");
            if (const auto source = integer(battery, "source"); source == 0) { // whether it charged is not on record
                battery["state"] = static_cast<int>(BatteryState::Draining);
            }
            batteries.push_back(std::move(battery));
        }
    }
    if (batteries.empty()) {
        batteries.push_back(Value::object());
    }
    bool isTold = told.is_array() && !told.empty();
    const Value others = momentPart(moment, "others");
    for (std::size_t place = 0; others.is_array() && place < others.size(); ++place) {
        for (const auto& [series, figure] :
            {std::pair("battery/charge", "percentage"), std::pair("battery/power", "power")}) {
            if (text(others[place], "series") == series) {
                batteries[0][figure] = momentPart(others[place], "value");
                isTold = true;
            }
        }
    }
    return isTold ? Value{{"batteries", std::move(batteries)}} : Value::object();
}

std::vector<ApplicationRate> ratesOfMoment(const Value& moment, ApplicationFigure figure)
{
    const Value& entries = momentPart(moment, "applications");
    const double seconds = momentFigure(moment, "applicationsUntil") - momentFigure(moment, "applicationsFrom");
    std::vector<ApplicationRate> rates;
    for (std::size_t place = 0; entries.is_array() && seconds > 0 && place < entries.size(); ++place) {
        rates.push_back(rateOfMoment(entries[place], seconds));
    }
    std::stable_sort(rates.begin(), rates.end(), [&](const ApplicationRate& a, const ApplicationRate& b) {
        return figureOf(a, figure).value_or(-1) > figureOf(b, figure).value_or(-1);
    });
    return rates;
}

Value processesOfMoment(const Value& moment)
{
    constexpr double hundred = 100;
    const Value& entries = momentPart(moment, "processes");
    const double seconds = momentFigure(moment, "applicationsUntil") - momentFigure(moment, "applicationsFrom");
    Value rows = Value::array();
    for (std::size_t place = 0; entries.is_array() && place < entries.size(); ++place) {
        const Value& entry = entries[place];
        if (!entry.is_object()) {
            continue;
        }
        Value row{{"pid", momentPart(entry, "pid")}, {"name", momentPart(entry, "name")},
            {"footprint", momentFigure(entry, "memory")}};
        if (seconds > 0) {
            row["cpu"] = momentFigure(entry, "cpu") / seconds * hundred;
        }
        rows.push_back(std::move(row));
    }
    return {{"processes", std::move(rows)}};
}

} // namespace meridal
