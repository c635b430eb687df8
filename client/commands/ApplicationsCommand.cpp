// SPDX-License-Identifier: Apache-2.0
#include "client/commands/Commands.h"
#include "client/commands/Pages.h"
#include "client/commands/Pictures.h"
#include "client/commands/SeriesMatch.h"
#include "client/commands/TimeStretch.h"
#include "client/screen/Format.h"
#include "client/screen/Terminal.h"
#include "client/screen/WallClock.h"
#include "client/views/Answers.h"
#include "client/views/ApplicationsView.h"
#include "wire/Methods.h"

#include <fmt/format.h>

#include <array>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace meridal {

namespace {

constexpr const char* applicationsExamples =
    R"(An application is a service, a program with its helpers, or a container, with all processes that
lived and died in that time. "other" is those too small to be kept apart, and those beyond
--limit; "kernel" is work that no process has. NAME is a name, what it is known by
("unit:nginx.service"), or a part that only one of them has. Memory is the mean while it ran.

Examples:
  meridalctl apps                                    CPU time, the last day
  meridalctl apps --range month --by network
  meridalctl apps --from "Tue 03:00" --until "Tue 06:00" --by disk
  meridalctl apps --group firefox --by memory        its course over the last day
  meridalctl apps --range year --by energy --svg year.svg
)";

constexpr std::size_t applicationsShown = 20;

struct ApplicationsOptions {
    TimeWords time{.range = "day", .from = {}, .until = {}};
    std::string by = "cpu";
    std::string group;     ///< empty: all, as totals
    std::string user;      ///< whose; empty: anybody's
    std::size_t limit = 0; ///< applications; 0: 20 for people, all for programs
    bool csv = false;
    std::string svgPath; ///< empty: no picture; "-": standard output
    bool json = false;
};

constexpr std::array<NamedRange, 5> applicationRanges = {{
    {"hour", 3600, "last hour"},
    {"day", day, "last day"},
    {"week", 7 * day, "last week"},
    {"month", 30 * day, "last 30 days"},
    {"year", 365 * day, "last year"},
}};

class ApplicationsQuery {
public:
    ApplicationsQuery(Session& session, const ApplicationsOptions& options, TimeStretch stretch)
        : session_(session)
        , options_(options)
        , stretch_(std::move(stretch))
        , figure_(applicationFigureNamed(options.by))
    {
    }

    void start()
    {
        askPages(session_, {.method = method::groupsHistory, .list = "groups", .parameters = question()},
            [this](Value groups, const Value& last) {
                options_.group.empty() ? reportTotals(groups, last) : choose(groups);
            });
    }

private:
    Value question() const
    {
        Value parameters{{"from", stretch_.from}, {"until", stretch_.until}, {"by", options_.by}};
        if (!options_.user.empty()) {
            parameters["owner"] = std::stoll(options_.user);
        }
        return parameters;
    }

    void reportTotals(const Value& all, Value last)
    {
        const bool isForPrograms = options_.json || options_.csv;
        const std::size_t usual = isForPrograms ? 0 : applicationsShown;
        Value groups = foldedApplications(all, options_.limit > 0 ? options_.limit : usual);
        if (options_.csv) {
            return session_.conclude(applicationCsv(groups));
        }
        if (options_.json) {
            last.erase("next");
            last["more"] = false;
            last["groups"] = std::move(groups);
            return session_.conclude(answerLine(last));
        }
        const std::string title = "Applications by " + options_.by + ", " + stretch_.title;
        if (!options_.svgPath.empty()) {
            return concludePicture(session_, barsSvg(applicationPicture(groups, figure_, title)), options_.svgPath);
        }
        Lines lines{{{Style::Title, title}}};
        const auto begins = number(last, "from");
        constexpr double notWorthAWord = 0.02; // of the time
        if (begins && *begins - stretch_.from > notWorthAWord * (stretch_.until - stretch_.from)) {
            lines.front().push_back({Style::Faint, "  recorded from " + formatTime(begins, "%d %b %Y %H:%M") + " on"});
        }
        appendLines(lines, applicationLines(groups, figure_, terminalColumns().value_or(0)));
        session_.conclude(lines);
    }

    void choose(const Value& groups)
    {
        std::vector<OfferedSeries> names;
        for (const Value& group : groups) {
            const std::string identity = text(group, "group").value_or("");
            names.push_back({.series = identity, .key = identity, .name = text(group, "name").value_or("")});
        }
        const SeriesMatch match = matchSeries(names, options_.group);
        if (names.empty() || !match.found) {
            return session_.fail(exitStatus::refused, complaintAbout(match, groups));
        }
        const Value& group = groups[*match.found];
        Value parameters = question();
        parameters["group"] = group.at("group");
        if (const auto user = integer(group, "user")) {
            parameters["owner"] = *user;
        }
        askPages(session_,
            {.method = method::groupsHistory, .list = "periods", .entry = "time", .parameters = parameters},
            [this](Value periods, Value last) {
                last["periods"] = std::move(periods);
                reportCourse(std::move(last));
            });
    }

    std::string complaintAbout(const SeriesMatch& match, const Value& groups) const
    {
        if (groups.empty()) {
            return "no application is recorded in this time";
        }
        std::string words = fmt::format("{} \"{}\" in this time; {}:",
            match.isAmbiguous ? "more than one application is called" : "no application is called", options_.group,
            match.isAmbiguous ? "say which, or whose by --user" : "there is");
        for (const std::size_t candidate : match.candidates) {
            const Value& group = groups[candidate];
            const auto user = integer(group, "user");
            words += fmt::format("{} {} ({}{})", candidate == match.candidates.front() ? "" : ",",
                text(group, "name").value_or(""), text(group, "group").value_or(""),
                user ? ", user " + std::to_string(*user) : "");
        }
        return words;
    }

    void reportCourse(Value course)
    {
        if (options_.csv) {
            return session_.conclude(applicationCsv(course.at("periods")));
        }
        if (options_.json) {
            course.erase("next");
            course["more"] = false;
            return session_.conclude(answerLine(course));
        }
        const Plot plot = applicationPlot(course, figure_, stretch_.title, stretch_.from, stretch_.until);
        concludePlots(session_, {&plot, 1}, options_.svgPath);
    }

    Session& session_;
    const ApplicationsOptions& options_;
    const TimeStretch stretch_;
    const ApplicationFigure figure_;
};

int runApplications(Session& session, const ApplicationsOptions& options)
{
    const auto stretch = timeStretchFrom(options.time, applicationRanges, wallTime());
    const bool isUser = options.user.size() < 10 && options.user.find_first_not_of("0123456789") == std::string::npos;
    if (!stretch || !isUser) {
        session.fail(exitStatus::usage, !stretch ? stretch.error().message : "--user takes the number of a user");
        return exitStatus::usage;
    }
    ApplicationsQuery query(session, options, *stretch);
    return session.run([&query] { query.start(); });
}

} // namespace

void addApplications(Grammar& grammar)
{
    auto [apps, options] =
        grammar.add("apps", "What each application has used, from an hour to a year", runApplications);
    apps.examples(applicationsExamples);
    addTimeOptions(apps, options.time, applicationRanges);
    apps.choice("--by", options.by, {"cpu", "energy", "memory", "disk", "network"}, "What to compare");
    apps.text("--group", options.group, "NAME", "Only this one, and its course over the time");
    apps.text("--user", options.user, "UID", "Of this user only");
    apps.count("--limit", options.limit, "Show at most so many; the rest is \"other\"");
    apps.flag("--csv", options.csv, "As comma-separated values");
    apps.flag("--json", options.json, "As JSON");
    apps.text("--svg", options.svgPath, "FILE", "Write a picture for browsers; - is standard output");
    apps.exclude("--json", "--csv");
    apps.exclude("--svg", "--csv");
    apps.exclude("--svg", "--json");
}

} // namespace meridal
