// SPDX-License-Identifier: Apache-2.0
#include "client/check/CheckRules.h"
#include "client/commands/CheckQuery.h"
#include "client/commands/Commands.h"
#include "client/commands/Pages.h"
#include "client/commands/Pictures.h"
#include "client/commands/Samples.h"
#include "client/commands/SeriesMatch.h"
#include "client/commands/TimeStretch.h"
#include "client/report/ReportPage.h"
#include "client/screen/WallClock.h"
#include "wire/Methods.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <functional>
#include <iterator>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace meridal {

namespace {

constexpr const char* reportExamples =
    R"(One page of HTML that needs nothing else: health, applications, load, temperatures, fans, disks,
battery, traffic and boots, as far as they are there. It can be mailed, printed and kept.

Examples:
  meridalctl report --html report.html
  meridalctl report --range month --html - | mail -a "Content-Type: text/html" -s report me
)";

constexpr std::array<NamedRange, 4> reportRanges = {{
    {"day", day, "last day"},
    {"week", 7 * day, "last week"},
    {"month", 30 * day, "last 30 days"},
    {"year", 365 * day, "last year"},
}};

constexpr std::array reportFigures = {"cpu", "memory", "disk", "network"};
constexpr std::size_t mostCurves = 6; // as many as there are colours
constexpr std::size_t bootsOfReport = 20;

struct ReportOptions {
    TimeWords time{.range = "week", .from = {}, .until = {}};
    std::string htmlPath;
};

/// What the processors did of all that they could: what is recorded is each kind of it, and the idle time is two of them.
Value busyOf(const Value& processors)
{
    const Value idle = withFigure(processors, "idle");
    const Value waiting = withFigure(processors, "iowait");
    Value busy = idle;
    busy["values"] = Value::array({"busy"});
    for (std::size_t place = 0; place < busy["samples"].size(); ++place) {
        Value& sample = busy["samples"][place];
        const Value& rest = idle["samples"][place]["values"][0];
        const Value& wait = waiting["samples"][place]["values"][0];
        const double waited = wait.is_number() ? wait.get<double>() : 0;
        sample["values"] =
            Value::array({rest.is_number() ? Value(std::max(0.0, 100 - rest.get<double>() - waited)) : Value()});
        sample.erase("low");
        sample.erase("high");
    }
    return busy;
}

Value usedOf(const Value& memory) { return withFigure(memory, "used"); }

/// A series, and where its samples go.
struct WantedCurve {
    std::string series;
    Value (*part)(const Value& answer) = nullptr; ///< what of it; null: all
    std::string label;
    std::vector<HistoryCurve>* curves = nullptr;
};

/// Asks one question after the other; what the daemon does not have is left out of the page.
class ReportQuery {
public:
    ReportQuery(Session& session, const ReportOptions& options, const TimeStretch& stretch)
        : session_(session)
        , options_(options)
        , resolution_(resolutionFor(stretch.from, stretch.until, wallTime()))
        , steps_{&ReportQuery::askInfo, &ReportQuery::askHealth, &ReportQuery::askApplications,
              &ReportQuery::askSensors, &ReportQuery::askSeries, &ReportQuery::askCurves, &ReportQuery::askDisks,
              &ReportQuery::askBattery, &ReportQuery::askTraffic, &ReportQuery::askBoots, &ReportQuery::finish}
    {
        sources_.now = wallTime();
        sources_.from = stretch.from;
        sources_.until = stretch.until;
        sources_.time = stretch.title;
        constexpr double mostDays = 62; // bars on a page
        sources_.trafficBy = stretch.until - stretch.from > mostDays * day ? "month" : "day";
    }

    void next() { (this->*steps_.at(step_++))(); }

private:
    Value range() const { return {{"from", sources_.from}, {"until", sources_.until}}; }

    void askInfo()
    {
        session_.callIfThere(method::machineInfo, Value::array(), [this](const Value& info) {
            sources_.info = info;
            next();
        });
    }

    void askHealth()
    {
        const std::vector<std::string> topics(std::begin(checkTopics), std::end(checkTopics));
        askCheck(session_, topics, CheckReading::WhereNeeded, [this](CheckReport report, const Value&) {
            sources_.check = std::move(report);
            next();
        });
    }

    void askApplications()
    {
        const std::size_t place = sources_.applications.size();
        if (place == reportFigures.size()) {
            return next();
        }
        Value question = range();
        question["by"] = reportFigures.at(place);
        askPages(session_,
            {.method = method::groupsHistory, .list = "groups", .parameters = question, .mayBeRefused = true},
            [this, place](Value groups, const Value&) {
                sources_.applications.emplace_back(applicationFigureNamed(reportFigures.at(place)), std::move(groups));
                askApplications();
            });
    }

    void askSensors()
    {
        askPages(session_,
            {.method = method::sensorsList, .list = "sensors", .parameters = {{"passive", true}}, .mayBeRefused = true},
            [this](const Value& sensors, const Value&) {
                for (const Value& sensor : sensors) {
                    latest_[text(sensor, "key").value_or("")] = number(sensor, "value").value_or(0);
                }
                next();
            });
    }

    void askSeries()
    {
        askPages(session_, {.method = method::historySeries, .list = "series", .entry = "series", .mayBeRefused = true},
            [this](const Value& series, const Value&) {
                chooseCurves(series);
                next();
            });
    }

    void chooseCurves(const Value& series)
    {
        const std::vector<OfferedSeries> names = offeredSeries(series);
        addCurve(names, {"processors", busyOf, "CPU", &sources_.load});
        addCurve(names, {"memory", usedOf, "memory used", &sources_.load});
        addCurve(names, {"battery/charge", nullptr, "charge", &sources_.charge});
        addForemost(series, names, "°C", sources_.temperatures);
        addForemost(series, names, "rpm", sources_.fans);
    }

    void addCurve(const std::vector<OfferedSeries>& names, WantedCurve wanted)
    {
        const auto found = std::find_if(
            names.begin(), names.end(), [&](const OfferedSeries& each) { return each.series == wanted.series; });
        if (found == names.end()) {
            return; // it is not recorded
        }
        if (wanted.label.empty()) {
            wanted.label = found->label;
        }
        wanted_.push_back(std::move(wanted));
    }

    /// Those recorded in a unit that are highest now; before those that are there no more.
    void addForemost(const Value& series, const std::vector<OfferedSeries>& names, std::string_view unit,
        std::vector<HistoryCurve>& curves)
    {
        std::vector<std::pair<double, std::string>> found;
        for (const Value& each : series) {
            if (text(each, "unit") == unit) {
                found.emplace_back(-latest_[text(each, "key").value_or("")], text(each, "series").value_or(""));
            }
        }
        std::sort(found.begin(), found.end());
        for (std::size_t place = 0; place < std::min(found.size(), mostCurves); ++place) {
            addCurve(names, {found[place].second, nullptr, "", &curves});
        }
    }

    void askCurves()
    {
        if (asked_ == wanted_.size()) {
            return next();
        }
        const WantedCurve& wanted = wanted_[asked_++];
        askSamples(session_,
            {.series = wanted.series, .resolution = resolution_, .from = sources_.from, .until = sources_.until},
            [this, &wanted](Value answer) {
                wanted.curves->push_back(
                    {.label = wanted.label, .answer = wanted.part ? wanted.part(answer) : std::move(answer)});
                askCurves();
            });
    }

    void askDisks()
    {
        askPages(session_, {.method = method::disksList, .list = "disks", .page = 64, .mayBeRefused = true},
            [this](Value disks, const Value&) {
                sources_.disks = std::move(disks);
                next();
            });
    }

    void askBattery()
    {
        session_.callIfThere(method::batteryState, {{"passive", true}}, [this](const Value& state) {
            sources_.battery = state;
            if (!state.is_object()) {
                return next();
            }
            askPages(session_,
                {.method = method::batteryHistory,
                    .list = "rows",
                    .cursor = "before",
                    .entry = "row",
                    .parameters = {{"figure", "health"}},
                    .mayBeRefused = true},
                [this](Value rows, const Value&) {
                    sources_.battery["history"]["health"] = std::move(rows);
                    next();
                });
        });
    }

    void askTraffic()
    {
        Value question = range();
        question["by"] = sources_.trafficBy;
        askPages(session_,
            {.method = method::bandwidthTotals, .list = "totals", .parameters = question, .mayBeRefused = true},
            [this](Value totals, const Value&) {
                sources_.traffic = std::move(totals);
                next();
            });
    }

    void askBoots()
    {
        Value question = range();
        question["limit"] = bootsOfReport;
        question["passive"] = true;
        session_.callIfThere(method::uptimeBoots, Value::array({question}), [this](const Value& boots) {
            sources_.boots = boots;
            next();
        });
    }

    void finish() { concludePicture(session_, reportPage(sources_), options_.htmlPath); }

    Session& session_;
    const ReportOptions& options_;
    const std::string resolution_;
    const std::array<void (ReportQuery::*)(), 11> steps_;
    std::size_t step_ = 0;
    ReportSources sources_;
    std::map<std::string, double> latest_; ///< of the sensors, by key
    std::vector<WantedCurve> wanted_;
    std::size_t asked_ = 0;
};

int runReport(Session& session, const ReportOptions& options)
{
    const auto stretch = timeStretchFrom(options.time, reportRanges, wallTime());
    if (!stretch || options.htmlPath.empty()) {
        session.fail(exitStatus::usage,
            stretch ? "--html FILE says where the page goes; - is standard output" : stretch.error().message);
        return exitStatus::usage;
    }
    ReportQuery query(session, options, *stretch);
    return session.run([&query] { query.next(); });
}

} // namespace

void addReport(Grammar& grammar)
{
    auto [report, options] = grammar.add("report", "A page about this machine, for browsers and mail", runReport);
    report.examples(reportExamples);
    addTimeOptions(report, options.time, reportRanges);
    report.text("--html", options.htmlPath, "FILE", "Where the page goes; - is standard output");
}

} // namespace meridal
