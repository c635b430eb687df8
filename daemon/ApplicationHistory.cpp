// SPDX-License-Identifier: Apache-2.0
#include "daemon/ApplicationHistory.h"

#include "base/Runtime.h"
#include "base/Text.h"
#include "collectors/applications/ApplicationRecorder.h"
#include "daemon/MeridalHistory.h"
#include "daemon/Parameters.h"
#include "daemon/ProcessViews.h"
#include "platform/Context.h"
#include "wire/Methods.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <string>
#include <utility>

namespace meridal {

namespace {

constexpr double clockTolerance = 60; // s; who rounds a moment up means now

constexpr std::array<std::string_view, rankings.size()> rankingNames = {"cpu", "memory", "disk", "network", "energy"};

std::optional<RankedBy> rankingNamed(std::string_view name)
{
    const auto* found = std::find(rankingNames.begin(), rankingNames.end(), name);
    return found != rankingNames.end()
        ? std::optional(rankings.at(static_cast<std::size_t>(found - rankingNames.begin())))
        : std::nullopt;
}

std::string cursorText(const TotalsCursor& cursor) { return serialise({cursor.rank, cursor.number}); }

/// Out of `next` of a page of totals, or of a course, which is a time.
std::optional<TotalsCursor> cursorFrom(const std::string& text, bool isTime)
{
    const auto parts = parseUntrusted(isTime ? "[" + text + ", 0]" : text);
    const bool isPair =
        parts && parts->is_array() && parts->size() == 2 && (*parts)[0].is_number() && (*parts)[1].is_number_integer();
    if (!isPair || !std::isfinite((*parts)[0].get<double>())) {
        return std::nullopt;
    }
    return TotalsCursor{(*parts)[0].get<double>(), (*parts)[1].get<std::int64_t>()};
}

/// What a question says of a time and of whom, whether it is about totals or a course.
struct Asked {
    double from = 0;
    double until = 0;
    RecordStep step = RecordStep::Hour;
    RankedBy by = RankedBy::Cpu;
    std::optional<std::string> group;
    std::optional<std::string> after;
    WhoseApplications whose;
    std::size_t limit = ApplicationHistory::standardPage;
};

void readTimes(Parameters& parameters, double now, const RecordKeep& keep, Asked& asked)
{
    asked.until = parameters.moment("until").value_or(now);
    asked.from = parameters.moment("from").value_or(asked.until - ApplicationHistory::standardSpan);
    if (asked.from > asked.until) {
        parameters.refuse(R"("until" lies before "from")");
    }
    for (const double time : {asked.from, asked.until}) {
        if (time > now + clockTolerance) {
            parameters.refuse("that is in the future");
        }
    }
    asked.step = stepFor(asked.from, asked.until, now, ApplicationHistory::mostPeriods, keep);
    const auto name = parameters.text("step");
    const auto step = recordStepNamed(name.value_or("hour"));
    if (!step) {
        parameters.refuse(R"("step" must be minute, quarter, hour, day or month)");
    } else if (name) {
        asked.step = *step;
    }
}

Asked readQuestion(Parameters& parameters, double now, const RecordKeep& keep)
{
    Asked asked;
    readTimes(parameters, now, keep, asked);
    asked.group = parameters.text("group");
    asked.after = parameters.text("after");
    asked.limit = parameters.limit(ApplicationHistory::standardPage, ApplicationHistory::mostPeriods);
    if (const auto ranking = rankingNamed(parameters.text("by").value_or("cpu"))) {
        asked.by = *ranking;
    } else {
        parameters.refuse(R"("by" must be cpu, energy, memory, disk or network)");
    }
    if (const auto owner = parameters.count("owner")) {
        if (*owner >= UINT32_MAX) {
            parameters.refuse(R"("owner" must be the number of a user)");
        }
        asked.whose.owner = static_cast<std::uint32_t>(*owner);
    }
    const double periods = (asked.until - asked.from) / traitsOf(asked.step).seconds;
    if (!asked.group && asked.step != RecordStep::Month && periods > ApplicationHistory::mostPeriods) {
        parameters.refuse(
            fmt::format("these are more than {} periods; take a coarser \"step\"", ApplicationHistory::mostPeriods));
    }
    return asked;
}

Value describeTotals(const RecordedTotals& totals, const Asked& asked, double now)
{
    Value groups = Value::array();
    for (const RecordedGroup& group : totals.groups) {
        groups.push_back(describeRecordedGroup(group));
    }
    Value answer{{"step", traitsOf(asked.step).name}, {"by", rankingNames.at(static_cast<std::size_t>(asked.by))},
        {"from", totals.until > 0 ? Value(totals.from) : Value()},
        {"until", totals.until > 0 ? Value(std::min(totals.until, now)) : Value()}, {"groups", std::move(groups)},
        {"more", totals.next.has_value()}};
    if (totals.next) {
        answer["next"] = cursorText(*totals.next);
    }
    return answer;
}

Value describeCourse(const RecordedCourse& course, const Asked& asked)
{
    Value periods = Value::array();
    for (const RecordedCourse::Period& period : course.periods) {
        Value entry{{"time", period.start}, {"seconds", period.seconds}};
        addRecordedFigures(entry, period.group);
        periods.push_back(std::move(entry));
    }
    Value answer{{"group", course.group.identity}, {"name", course.group.name},
        {"kind", groupKindName(course.group.kind)}, {"step", traitsOf(asked.step).name},
        {"periods", std::move(periods)}, {"more", course.more}};
    put(answer, "user", course.group.owner);
    if (course.more) {
        answer["next"] = fixed0(course.periods.back().start);
    }
    return answer;
}

Unexpected unreadable() { return unexpected(ErrorCode::Unavailable, "the record cannot be read now"); }

} // namespace

void addRecordedFigures(Value& entry, const RecordedGroup& group)
{
    const GroupSums& sums = group.sums;
    entry.update({{"cpuUser", sums.cpuUserSeconds}, {"cpuSystem", sums.cpuSystemSeconds}, {"diskRead", sums.bytesRead},
        {"diskWritten", sums.bytesWritten}, {"received", sums.bytesReceived}, {"sent", sums.bytesSent},
        {"wakeups", sums.wakeups}, {"energyScore", sums.energyScore}, {"started", sums.processesStarted},
        {"ended", sums.processesEnded}, {"memory", group.levels.footprintBytes}});
    put(entry, "joules", sums.joules);
    put(entry, "memoryPeak", group.memoryPeakBytes);
    if (group.memoryPeakBytes) {
        entry["processesPeak"] = group.levels.processes;
    }
}

Value describeRecordedGroup(const RecordedGroup& group)
{
    Value entry{{"group", group.identity}, {"name", group.name}, {"kind", groupKindName(group.kind)}};
    put(entry, "user", group.owner);
    addRecordedFigures(entry, group);
    return entry;
}

void ApplicationHistory::addTo(MeridalHistory& methods)
{
    methods.addAsyncMethod(method::groupsHistory, [this](const Value& parameters, const Peer& peer, Reply reply) {
        history(parameters, peer, std::move(reply));
    });
}

void ApplicationHistory::history(const Value& given, const Peer& peer, Reply reply) const
{
    const double now = context_.runtime.wallTime();
    Parameters parameters(given);
    Asked asked = readQuestion(parameters, now, recorder_.keep());
    asked.whose.viewer = views_.viewerOf(peer);
    std::optional<TotalsCursor> cursor;
    std::optional<double> afterTime;
    if (asked.after) {
        cursor = cursorFrom(*asked.after, asked.group.has_value());
        afterTime = cursor ? std::optional(cursor->rank) : std::nullopt;
        if (!cursor) {
            parameters.refuse(R"("after" must be the "next" of a page)");
        }
    }
    if (!parameters.valid()) {
        return reply(parameters.failure());
    }
    if (!asked.group) {
        recorder_.readTotals({asked.from, asked.until, asked.step, asked.by, asked.whose, asked.limit, cursor},
            [asked, now, reply = std::move(reply)](const std::optional<RecordedTotals>& totals) {
                reply(totals ? Result<Value>(describeTotals(*totals, asked, now)) : unreadable());
            });
        return;
    }
    recorder_.readCourse({asked.from, asked.until, asked.step, *asked.group, asked.whose, asked.limit, afterTime},
        [asked, reply = std::move(reply)](const std::optional<RecordedCourse>& course) {
            if (course && !course->isKnown) {
                return reply(unexpected(ErrorCode::NotFound, "no such group is recorded"));
            }
            reply(course ? Result<Value>(describeCourse(*course, asked)) : unreadable());
        });
}

} // namespace meridal
