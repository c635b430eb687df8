#include "client/commands/Commands.h"
#include "client/commands/Pages.h"
#include "client/commands/SeriesMatch.h"
#include "client/plot/SvgPlot.h"
#include "client/screen/Format.h"
#include "client/screen/Output.h"
#include "client/screen/Terminal.h"
#include "client/screen/WallClock.h"
#include "client/views/HistoryView.h"
#include "wire/Methods.h"

#include <fmt/format.h>

#include <array>
#include <string_view>
#include <utility>
#include <vector>

namespace meridal {

namespace {

constexpr int largestSamplesPage = 1000; // the daemon's own limit
constexpr std::size_t mostSamples = 20'000;
constexpr int usualColumns = 100; // where there is no terminal
constexpr int historyPlotRows = 15;

constexpr const char* historyExamples =
    R"(SENSOR is a key, a name, or words that only one of them has. Stretches in which
nothing was measured are left blank.

Examples:
  meridalctl history "Package id 0"
  meridalctl history nvme --range week
  meridalctl history memory --range month
  meridalctl history TC0P --range day --svg day.svg
  meridalctl history TC0P --csv > hour.csv
)";

struct HistoryOptions {
    std::string sensor;         ///< or what is like it
    std::string range = "hour"; ///< by the daemon's names of resolutions
    bool csv = false;
    std::string svgPath; ///< empty: no picture; "-": standard output
    bool json = false;
};

/// How far back each range reaches, and what it is called.
struct Range {
    std::string_view name;
    double span = 0; ///< s
    std::string_view title;
};
constexpr std::array<Range, 7> ranges = {{
    {"hour", 3600, "last hour"},
    {"day", day, "last day"},
    {"week", 7 * day, "last week"},
    {"month", 30 * day, "last 30 days"},
    {"threemonth", 90 * day, "last 90 days"},
    {"sixmonth", 180 * day, "last 180 days"},
    {"year", 365 * day, "last year"},
}};

Range rangeNamed(std::string_view name)
{
    for (const Range& range : ranges) {
        if (range.name == name) {
            return range;
        }
    }
    return ranges.front();
}

/// From the words on the command line to the series, from there to its samples, from there to paper.
class HistoryQuery {
public:
    HistoryQuery(Session& session, const HistoryOptions& options)
        : session_(session), options_(options), range_(rangeNamed(options.range)), until_(wallTime())
    {
    }

    void start()
    {
        askPages(session_, {.method = method::historySeries, .list = "series", .entry = "series"},
            [this](const Value& series, const Value&) {
                for (const Value& each : series) {
                    names_.push_back({.series = text(each, "series").value_or(""),
                        .key = text(each, "key").value_or(""),
                        .name = text(each, "name").value_or("")});
                }
                choose();
            });
    }

private:
    void choose()
    {
        if (names_.empty()) {
            return session_.conclude(options_.json ? "{}\n" : "nothing is recorded yet\n");
        }
        const std::string& wanted = options_.sensor;
        const SeriesMatch match = matchSeries(names_, wanted);
        if (!match.found) {
            std::string complaint = fmt::format(
                "{} \"{}\"; {}:", match.isAmbiguous ? "more than one is called" : "nothing recorded is called", wanted,
                match.isAmbiguous ? "say which" : "there is");
            for (const std::size_t candidate : match.candidates) {
                const SeriesName& each = names_[candidate];
                complaint +=
                    fmt::format("{} {} ({})", candidate == match.candidates.front() ? "" : ",", each.name, each.series);
            }
            return session_.fail(exitStatus::refused, complaint);
        }
        chosen_ = names_[*match.found];
        askSamples({});
    }

    void askSamples(const Value& before)
    {
        Value parameters{{"series", chosen_.series}, {"resolution", range_.name}, {"from", until_ - range_.span},
            {"limit", largestSamplesPage}};
        if (!before.is_null()) {
            parameters["before"] = before;
        }
        session_.call(
            method::historySamples, Value::array({parameters}), [this](const Value& page) { takeSamples(page); });
    }

    void takeSamples(const Value& page)
    {
        const Value* samples = find(page, "samples");
        if (!samples || !samples->is_array()) {
            return session_.fail(exitStatus::refused, "the daemon's answer tells no samples: " + terminalJson(page));
        }
        samples_.insert(samples_.begin(), samples->begin(), samples->end());
        const Value* more = find(page, "more");
        const Value* next = find(page, "next"); // a page may be empty and still not the last
        if (more && *more == true && next && samples_.size() < mostSamples) {
            return askSamples(*next);
        }
        answer_ = page;
        answer_.erase("more");
        answer_.erase("next");
        answer_["name"] = chosen_.name;
        answer_["samples"] = std::move(samples_);
        report();
    }

    void report()
    {
        if (options_.json || options_.csv) {
            return session_.conclude(options_.json ? jsonLine(answer_) : historyCsv(answer_));
        }
        const std::string title = fmt::format("{}, {}", chosen_.name, range_.title);
        const Plot plot = historyPlot(answer_, title, until_ - range_.span, until_);
        if (options_.svgPath.empty()) {
            return session_.conclude(plotLines(plot, terminalColumns().value_or(usualColumns), historyPlotRows));
        }
        if (options_.svgPath == "-") {
            return session_.conclude(plotSvg(plot));
        }
        const std::string failure = writeFile(options_.svgPath, plotSvg(plot));
        failure.empty() ? session_.finish(exitStatus::success)
                        : session_.fail(exitStatus::refused, "cannot write " + options_.svgPath + ": " + failure);
    }

    Session& session_;
    const HistoryOptions& options_;
    const Range range_;
    const double until_; ///< s since 1970
    std::vector<SeriesName> names_;
    SeriesName chosen_;
    Value samples_ = Value::array();
    Value answer_;
};

int runHistory(Session& session, const HistoryOptions& options)
{
    HistoryQuery query(session, options);
    return session.run([&query] { query.start(); });
}

} // namespace

void addHistory(Grammar& grammar)
{
    auto [history, options] = grammar.add(
        "history", "What was recorded of a sensor, a disk or the machine, as a plot or as figures", runHistory);
    history.examples(historyExamples);
    history.word("sensor", options.sensor, "A key, a name, or a part of one");
    std::vector<std::string> names;
    for (const Range& range : ranges) {
        names.emplace_back(range.name);
    }
    history.choice("--range", options.range, names, "How far back");
    history.flag("--csv", options.csv, "The samples as comma-separated values");
    history.flag("--json", options.json, "The samples as JSON");
    history.text("--svg", options.svgPath, "FILE", "Write the plot as a picture for browsers; - is standard output");
    history.exclude("--json", "--csv");
    history.exclude("--svg", "--csv");
    history.exclude("--svg", "--json");
}

} // namespace meridal
