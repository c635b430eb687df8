// SPDX-License-Identifier: Apache-2.0
#include "client/commands/Commands.h"
#include "client/commands/HistoryList.h"
#include "client/commands/Pages.h"
#include "client/commands/Pictures.h"
#include "client/commands/Samples.h"
#include "client/commands/SeriesMatch.h"
#include "client/commands/TimeStretch.h"
#include "client/screen/Format.h"
#include "client/screen/WallClock.h"
#include "client/views/Answers.h"
#include "client/views/HistoryView.h"
#include "wire/Methods.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <limits>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace meridal {

namespace {

constexpr const char* historyExamples =
    R"(NAME is one that the list without a name shows ("coretemp/Core 0", "nvme0n1/Composite"), a
key, or words that only one of them has; "memory/used" is one figure of those that "memory"
has. Several names share a plot where their unit is the same. Stretches in which nothing was
measured are left blank; the lighter ground is between the lowest and the highest that went
into each mean.

TIME is "03:00", "yesterday 18:30", "Tue 03:00", "-2h", "2026-11-20", "2026-11-20 18:30" or
"2026-11-20T18:30+01:00".

Examples:
  meridalctl history                                 what is recorded
  meridalctl history memory/used
  meridalctl history load memory/used --range week
  meridalctl history memory/used --from "yesterday 03:00" --until "yesterday 06:00"
  meridalctl history load --range day --svg -
  meridalctl history load --csv
)";

struct HistoryOptions {
    std::vector<std::string> names; ///< or what is like them; none: a list
    TimeWords time{.range = "hour", .from = {}, .until = {}};
    std::string resolution = "auto"; ///< or one of the daemon's
    bool csv = false;
    std::string svgPath; ///< empty: no picture; "-": standard output
    bool json = false;
};

/// By the daemon's names of resolutions.
constexpr std::array<NamedRange, 8> historyRanges = {{
    {"hour", 3600, "last hour"},
    {"day", day, "last day"},
    {"week", 7 * day, "last week"},
    {"month", 30 * day, "last 30 days"},
    {"threemonth", 90 * day, "last 90 days"},
    {"sixmonth", 180 * day, "last 180 days"},
    {"year", 365 * day, "last year"},
    {"longterm", 0, "all that is kept"},
}};

/// What one name on the command line means.
struct ChosenSeries {
    OfferedSeries series;
    std::optional<std::string> figure; ///< only this one of its figures
    std::optional<Value> answer;       ///< once it is there
};

std::string complaintAbout(const std::string& wanted, const SeriesMatch& match, std::span<const OfferedSeries> all)
{
    std::string complaint =
        fmt::format("{} \"{}\"; {}:", match.isAmbiguous ? "more than one is called" : "nothing recorded is called",
            wanted, match.isAmbiguous ? "say which" : "there is");
    for (const std::size_t candidate : match.candidates) {
        const OfferedSeries& each = all[candidate];
        complaint += fmt::format("{} {}{}", candidate == match.candidates.front() ? "" : ",", each.label,
            each.label == each.series ? " (" + each.name + ")" : " (" + each.series + ")");
    }
    return complaint;
}

/// From the words on the command line to the series, from there to their samples, from there to paper.
class HistoryQuery {
public:
    HistoryQuery(Session& session, const HistoryOptions& options, TimeStretch stretch, double now)
        : session_(session), options_(options), stretch_(std::move(stretch)), now_(now)
    {
        const bool isChosen = options_.resolution != "auto";
        resolution_ = isChosen      ? options_.resolution
            : stretch_.name.empty() ? resolutionFor(stretch_.from, stretch_.until, now_)
                                    : std::string(stretch_.name);
    }

    void start()
    {
        askPages(session_, {.method = method::historySeries, .list = "series", .entry = "series"},
            [this](const Value& series, const Value&) {
                names_ = offeredSeries(series);
                if (options_.names.empty()) {
                    list_ = std::make_unique<HistoryList>(session_, stretch_, resolution_, options_.json);
                    return list_->show(series, names_);
                }
                choose(series);
            });
    }

private:
    void choose(const Value& series)
    {
        if (names_.empty()) {
            return session_.conclude(options_.json ? "{}\n" : "nothing is recorded yet\n");
        }
        for (const std::string& wanted : options_.names) {
            const SeriesMatch match = matchSeries(names_, wanted);
            const auto part = match.found || match.isAmbiguous ? std::nullopt : figureNamed(series, wanted);
            if (!match.found && !part) {
                return session_.fail(exitStatus::refused, complaintAbout(wanted, match, names_));
            }
            chosen_.push_back(part ? *part : ChosenSeries{names_[*match.found], {}, {}});
        }
        askNext();
    }

    /// "memory/used" is the figure "used" of the series "memory".
    std::optional<ChosenSeries> figureNamed(const Value& series, const std::string& wanted) const
    {
        const std::size_t slash = wanted.rfind('/');
        if (slash == std::string::npos) {
            return std::nullopt;
        }
        const SeriesMatch match = matchSeries(names_, wanted.substr(0, slash));
        const Value* figures = match.found ? find(series[*match.found], "values") : nullptr;
        const std::string figure = wanted.substr(slash + 1);
        const bool hasFigure = figures && std::find(figures->begin(), figures->end(), Value(figure)) != figures->end();
        return hasFigure ? std::optional(ChosenSeries{names_[*match.found], figure, {}}) : std::nullopt;
    }

    void askNext()
    {
        const auto next =
            std::find_if(chosen_.begin(), chosen_.end(), [](const ChosenSeries& each) { return !each.answer; });
        if (next == chosen_.end()) {
            return report();
        }
        askSamples(session_,
            {.series = next->series.series, .resolution = resolution_, .from = stretch_.from, .until = stretch_.until},
            [this, next](Value answer) {
                answer["name"] = next->series.name;
                answer["label"] = next->series.label;
                next->answer = next->figure ? withFigure(answer, *next->figure) : std::move(answer);
                askNext();
            });
    }

    void report()
    {
        std::vector<HistoryCurve> curves;
        for (ChosenSeries& each : chosen_) {
            const bool isOnly = chosen_.size() == 1;
            const std::string label = (isOnly && each.series.key.empty() ? each.series.name : each.series.label)
                + (each.figure ? "/" + *each.figure : "");
            curves.push_back({.label = label, .answer = std::move(*each.answer)});
        }
        if (options_.csv) {
            return session_.conclude(historyCsv(curves));
        }
        if (options_.json) {
            Value all = Value::array();
            for (HistoryCurve& curve : curves) {
                all.push_back(std::move(curve.answer));
            }
            return session_.conclude(answerLine(all.size() == 1 ? all[0] : Value{{"series", all}}));
        }
        double from = stretch_.from;
        if (from == 0) { // all that is kept
            from = stretch_.until;
            for (const HistoryCurve& curve : curves) {
                const Value& samples = curve.answer.at("samples");
                from = std::min(from, samples.empty() ? from : number(samples.front(), "time").value_or(from));
            }
        }
        concludePlots(session_, historyPlots(curves, stretch_.title, from, stretch_.until, now_), options_.svgPath);
    }

    Session& session_;
    const HistoryOptions& options_;
    const TimeStretch stretch_;
    const double now_; ///< s since 1970
    std::string resolution_;
    std::vector<OfferedSeries> names_;
    std::vector<ChosenSeries> chosen_;
    std::unique_ptr<HistoryList> list_;
};

int runHistory(Session& session, const HistoryOptions& options)
{
    const double now = wallTime();
    const auto stretch = timeStretchFrom(options.time, historyRanges, now);
    if (!stretch) {
        session.fail(exitStatus::usage, stretch.error().message);
        return exitStatus::usage;
    }
    if (options.names.empty() && (options.csv || !options.svgPath.empty())) {
        session.fail(exitStatus::usage, "say what to write; \"meridalctl history\" lists the names");
        return exitStatus::usage;
    }
    HistoryQuery query(session, options, *stretch, now);
    return session.run([&query] { query.start(); });
}

} // namespace

void addHistory(Grammar& grammar)
{
    auto [history, options] = grammar.add(
        "history", "What was recorded of sensors, disks and the machine: a list, plots or figures", runHistory);
    history.examples(historyExamples);
    history.anyWords("name", options.names, "Keys, names, or parts of them; none lists all");
    addTimeOptions(history, options.time, historyRanges);
    std::vector<std::string> resolutions = {"auto"};
    for (const NamedRange& range : historyRanges) {
        resolutions.emplace_back(range.name);
    }
    history.choice("--resolution", options.resolution, resolutions, "Which of the record's resolutions to read");
    history.flag("--csv", options.csv, "The samples as comma-separated values");
    history.flag("--json", options.json, "The samples as JSON");
    history.text("--svg", options.svgPath, "FILE", "Write the plot as a picture for browsers; - is standard output");
    history.exclude("--json", "--csv");
    history.exclude("--svg", "--csv");
    history.exclude("--svg", "--json");
}

} // namespace meridal
