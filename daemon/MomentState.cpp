// SPDX-License-Identifier: Apache-2.0
#include "daemon/MomentState.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace meridal {

namespace {

/// A boot that ended without a farewell is known to have lasted as long as the latest note of it.
constexpr double longestUnnoted = 660; // s

double endOf(const BootRow& boot) { return boot.started + boot.length; }

std::optional<double> nextStart(const MomentRecord& record)
{
    std::optional<double> next;
    if (record.laterBoots && !record.laterBoots->more) {
        for (const BootRow& boot : record.laterBoots->boots) {
            if (boot.started > record.time && (!next || boot.started < *next)) {
                next = boot.started;
            }
        }
    }
    return next;
}

MomentState stateAfter(const BootRow& boot, const MomentRecord& record)
{
    MomentState state;
    state.until = nextStart(record);
    if (boot.end == BootEnd::Crash && record.time - endOf(boot) < longestUnnoted) {
        state.why = "the machine crashed or lost its power at about that time";
        return state;
    }
    state.isOn = false;
    state.isAsleep = boot.end == BootEnd::Asleep ? std::nullopt : std::optional(false);
    state.since = boot.shutdown ? *boot.shutdown : endOf(boot);
    state.why = boot.end == BootEnd::Asleep ? "the machine was asleep, and did not wake"
                                            : "the machine was off, or ran without the daemon";
    return state;
}

void addEvent(const MomentRecord& record, double time, std::string what, Value& changes)
{
    if (std::abs(time - record.time) <= HistoryMoment::minutesAround && time <= record.now) {
        changes.push_back({{"time", time}, {"what", std::move(what)}});
    }
}

const char* nameOfEnd(BootEnd end)
{
    switch (end) {
    case BootEnd::Orderly:
        return "the machine was shut down";
    case BootEnd::Crash:
        return "the machine crashed or lost its power (at this time or up to ten minutes later)";
    case BootEnd::Asleep:
        return "the machine fell asleep and did not wake";
    case BootEnd::Running:
        break;
    }
    return "";
}

} // namespace

MomentState momentState(const MomentRecord& record)
{
    MomentState state;
    if (!record.boots) {
        return state;
    }
    const auto& boots = record.boots->boots; // newest first
    const auto boot =
        std::find_if(boots.begin(), boots.end(), [&](const BootRow& each) { return each.started <= record.time; });
    if (boot == boots.end()) {
        state.until = nextStart(record);
        state.why = "it was before the first start of the machine that is recorded";
        return state;
    }
    if (boot->end != BootEnd::Running && record.time > endOf(*boot)) {
        return stateAfter(*boot, record);
    }
    state.isOn = true;
    state.isAsleep = false;
    state.since = boot->started;
    for (const SleepRow& sleep : record.boots->sleeps) {
        if (sleep.start <= record.time && record.time < sleep.end) {
            state.isAsleep = true;
            state.since = sleep.start;
            state.until = sleep.end;
            state.why = "the machine was asleep";
        } else if (sleep.end <= record.time && sleep.end > *state.since) {
            state.since = sleep.end;
        }
    }
    return state;
}

Value describe(const MomentState& state)
{
    Value answer{{"on", state.isOn ? Value(*state.isOn) : Value()},
        {"asleep", state.isAsleep ? Value(*state.isAsleep) : Value()}};
    put(answer, "since", state.since);
    put(answer, "until", state.until);
    return answer;
}

namespace {

std::pair<double, double> extentOf(const MomentRecord& record)
{
    double from = 0;
    double until = 0;
    for (const auto& [recorder, moment] : record.figures) {
        if (moment && moment->oldest() > 0) {
            from = from > 0 ? std::min(from, moment->oldest()) : moment->oldest();
            until = std::max(until, moment->newest());
        }
    }
    return {from, until};
}

} // namespace

Value describeExtent(const MomentRecord& record)
{
    const auto [from, until] = extentOf(record);
    return from > 0 ? Value{{"from", from}, {"until", until}} : Value{{"from", nullptr}, {"until", nullptr}};
}

std::string whyNothingIsKnown(const MomentRecord& record, const MomentState& state)
{
    const auto [from, until] = extentOf(record);
    if (std::any_of(record.figures.begin(), record.figures.end(), [](const auto& each) { return !each.second; })) {
        return "the record cannot be read now";
    }
    if (!state.why.empty()) {
        return state.why;
    }
    if (from == 0) {
        return "nothing is recorded yet";
    }
    if (record.time < from) {
        return "what is kept begins later";
    }
    return record.time > until ? "it is not recorded yet" : "the daemon did not run, or could not measure";
}

void addEvents(const MomentRecord& record, Value& changes)
{
    if (record.boots) {
        for (const BootRow& boot : record.boots->boots) {
            addEvent(record, boot.started, "the machine started", changes);
            if (boot.end != BootEnd::Running) {
                addEvent(record, boot.shutdown.value_or(endOf(boot)), nameOfEnd(boot.end), changes);
            }
        }
        for (const SleepRow& sleep : record.boots->sleeps) {
            addEvent(record, sleep.start, "the machine fell asleep", changes);
            addEvent(record, sleep.end, "the machine woke", changes);
        }
    }
    if (record.sources) {
        for (const BatteryRow& row : record.sources->rows) {
            addEvent(
                record, row.time, row.value == 1 ? "on AC power from then on" : "on battery from then on", changes);
        }
    }
}

} // namespace meridal
