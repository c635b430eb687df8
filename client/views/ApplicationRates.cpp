// SPDX-License-Identifier: Apache-2.0
#include "client/views/ApplicationRates.h"

#include "client/screen/Format.h"
#include "client/screen/TextTable.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <string_view>

namespace meridal {

namespace {

bool isNobodys(const ApplicationRate& rate)
{
    const auto kind = text(rate.group, "kind");
    return kind == "other" || kind == "kernel";
}

/// A counter's growth a second; absent where either end of it is.
std::optional<double> growth(const Value& before, const Value& now, std::string_view key, double seconds)
{
    const auto last = number(now, key);
    const auto first = before.is_null() ? std::optional(0.0) : number(before, key); // a new one has counted from zero
    return first && last && *last >= *first && seconds > 0 ? std::optional((*last - *first) / seconds) : std::nullopt;
}

std::optional<double> growthOfBoth(
    const Value& before, const Value& now, std::string_view one, std::string_view other, double seconds)
{
    const auto first = growth(before, now, one, seconds);
    const auto second = growth(before, now, other, seconds);
    return first || second ? std::optional(first.value_or(0) + second.value_or(0)) : std::nullopt;
}

/// What would be free without it, which is also what is recorded; hosts without footprints tell zeros.
std::optional<double> memoryOf(const Value& group)
{
    const auto footprint = number(group, "footprint");
    return footprint.value_or(0) > 0 ? footprint : number(group, "resident");
}

ApplicationRate rateBetween(const Value& before, const Value& now, double seconds)
{
    constexpr double hundred = 100;
    ApplicationRate rate{.group = now,
        .cpu = growthOfBoth(before, now, "cpuUser", "cpuSystem", seconds),
        .energy = growth(before, now, number(now, "joules") ? "joules" : "energyScore", seconds),
        .memory = memoryOf(now),
        .disk = growthOfBoth(before, now, "diskRead", "diskWritten", seconds),
        .network = growthOfBoth(before, now, "received", "sent", seconds),
        .processes = number(now, "processes")};
    rate.cpu = rate.cpu ? std::optional(*rate.cpu * hundred) : std::nullopt;
    return rate;
}

/// One that is not told of has not changed.
void rest(ApplicationRate& rate)
{
    for (auto* figure : {&rate.cpu, &rate.energy, &rate.disk, &rate.network}) {
        *figure = 0;
    }
}

std::string words(const ApplicationRate& rate, ApplicationFigure figure, bool isPower)
{
    const auto amount = figureOf(rate, figure);
    if (!amount) {
        return "-";
    }
    switch (figure) {
    case ApplicationFigure::Cpu:
        return formatFigure(*amount) + " %";
    case ApplicationFigure::Energy:
        return formatFigure(*amount) + (isPower ? " W" : "");
    case ApplicationFigure::Memory:
        return formatBytes(*amount);
    case ApplicationFigure::Disk:
    case ApplicationFigure::Network:
        break;
    }
    return *amount > 0 ? formatByteRate(*amount) : "-";
}

struct UsageColumn {
    ApplicationFigure figure;
    const char* title;
    int width;
    int leaves; ///< where there is too little room, unless it is what they are ranked by
};
constexpr UsageColumn usageColumns[] = {{ApplicationFigure::Cpu, "CPU", 9, 5},
    {ApplicationFigure::Memory, "MEMORY", 10, 4}, {ApplicationFigure::Disk, "DISK", 12, 3},
    {ApplicationFigure::Network, "NETWORK", 12, 2}, {ApplicationFigure::Energy, "ENERGY", 9, 1}};

} // namespace

ApplicationRates::Identity ApplicationRates::identityOf(const Value& group)
{
    return {text(group, "group").value_or(""), integer(group, "user")};
}

void ApplicationRates::take(const Value& answer)
{
    const auto time = number(answer, "time");
    const Value* groups = find(answer, "groups");
    if (!time || !groups || !groups->is_array()) {
        return;
    }
    const auto since = number(answer, "since"); // only what tells all groups has it
    constexpr double longAgo = 10;              // s: a mean over a time in which nobody looked is not what is used now
    if (since && (since != since_ || *time - time_.value_or(*time) > longAgo)) {
        clear();
    }
    const double seconds = *time - time_.value_or(*time);
    std::map<Identity, ApplicationRate> latest;
    for (const Value& group : *groups) {
        const Identity identity = identityOf(group);
        const auto known = rates_.find(identity);
        latest[identity] = rateBetween(known != rates_.end() ? known->second.group : Value(), group, seconds);
    }
    if (!since) {
        std::set<Identity> gone;
        const Value* left = find(answer, "gone");
        for (const Value& each : left && left->is_array() ? *left : Value::array()) {
            gone.insert(identityOf(each));
        }
        for (auto& [identity, rate] : rates_) {
            if (!latest.contains(identity) && !gone.contains(identity)) {
                rest(rate);
                latest.emplace(identity, std::move(rate));
            }
        }
    }
    rates_ = std::move(latest);
    time_ = time;
    since_ = since ? since : since_;
}

std::vector<ApplicationRate> ApplicationRates::ranked(ApplicationFigure figure) const
{
    std::vector<ApplicationRate> rates;
    for (const auto& [identity, rate] : rates_) {
        if (rate.processes.value_or(0) > 0 || figureOf(rate, figure).value_or(0) > 0) {
            rates.push_back(rate);
        }
    }
    std::stable_sort(rates.begin(), rates.end(), [figure](const ApplicationRate& a, const ApplicationRate& b) {
        const auto order = [figure](const ApplicationRate& rate) {
            return std::pair(isNobodys(rate), -figureOf(rate, figure).value_or(-1));
        };
        return order(a) < order(b);
    });
    return rates;
}

std::optional<double> figureOf(const ApplicationRate& rate, ApplicationFigure figure)
{
    switch (figure) {
    case ApplicationFigure::Cpu:
        return rate.cpu;
    case ApplicationFigure::Energy:
        return rate.energy;
    case ApplicationFigure::Memory:
        return rate.memory;
    case ApplicationFigure::Disk:
        return rate.disk;
    case ApplicationFigure::Network:
        return rate.network;
    }
    return std::nullopt;
}

Lines applicationRateLines(const std::vector<ApplicationRate>& rates, ApplicationFigure figure, int room)
{
    if (rates.empty()) {
        return {{{Style::Plain, "no application is running"}}};
    }
    Value groups = Value::array();
    for (const ApplicationRate& rate : rates) {
        groups.push_back(rate.group);
    }
    const std::vector<std::string> labels = applicationLabels(groups);
    const bool isPower =
        std::any_of(groups.begin(), groups.end(), [](const Value& each) { return number(each, "joules"); });
    std::vector<TableColumn> columns = {{.title = "APPLICATION", .width = 30, .gap = 1, .least = 12}};
    for (const UsageColumn& each : usageColumns) {
        const bool ranks = each.figure == figure;
        columns.push_back({.title = ranks ? std::string(each.title) + "▾" : each.title,
            .width = each.width,
            .align = Align::Right,
            .gap = 1,
            .leaves = ranks ? 0 : each.leaves});
    }
    columns.push_back({.title = "PROCESSES", .width = 9, .align = Align::Right, .leaves = 1});
    TextTable table(std::move(columns), room);
    for (std::size_t place = 0; place < rates.size(); ++place) {
        const Style style = isNobodys(rates[place]) ? Style::Faint : Style::Plain;
        std::vector<TableCell> cells = {{style, labels[place]}};
        for (const UsageColumn& each : usageColumns) {
            cells.emplace_back(style, words(rates[place], each.figure, isPower));
        }
        cells.emplace_back(style, rates[place].processes ? fmt::format("{:.0f}", *rates[place].processes) : "-");
        table.add(std::move(cells));
    }
    return table.lines();
}

} // namespace meridal
