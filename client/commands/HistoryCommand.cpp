#include "client/commands/HistoryCommand.h"

#include "base/Text.h"
#include "client/commands/SeriesMatch.h"
#include "client/plot/SvgPlot.h"
#include "client/screen/Format.h"
#include "client/screen/Terminal.h"
#include "client/screen/WallClock.h"
#include "client/views/HistoryView.h"
#include "wire/Methods.h"

#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace meridal {

namespace {

constexpr int largestSeriesPage = 500; // the daemon's own limits
constexpr int largestSamplesPage = 1000;
constexpr std::size_t mostSamples = 20'000;
constexpr int usualColumns = 100; // where there is no terminal
constexpr int historyPlotRows = 15;

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

/// Writes a file whole; answers why not, or nothing.
std::string writeFile(const std::string& path, const std::string& content)
{
    errno = 0;
    std::FILE* file = std::fopen(path.c_str(), "w");
    bool written = file && std::fwrite(content.data(), 1, content.size(), file) == content.size();
    if (file) {
        written = std::fclose(file) == 0 && written;
    }
    return written ? "" : "cannot write " + path + ": " + std::generic_category().message(errno != 0 ? errno : EIO);
}

/// From the words on the command line to the series, from there to its samples, from there to paper.
class HistoryQuery {
public:
    explicit HistoryQuery(Session& session)
        : session_(session), range_(rangeNamed(session.arguments().range)), until_(wallTime())
    {
    }

    void start() { askSeries({{"limit", largestSeriesPage}}); }

private:
    void askSeries(const Value& parameters)
    {
        session_.call(
            method::historySeries, Value::array({parameters}), [this](const Value& page) { takeSeries(page); });
    }

    void takeSeries(const Value& page)
    {
        const Value* series = find(page, "series");
        if (!series || !series->is_array()) {
            return session_.fail(exitStatus::refused, "the daemon's answer tells no series: " + terminalJson(page));
        }
        for (const Value& each : *series) {
            names_.push_back({.series = text(each, "series").value_or(""),
                .key = text(each, "key").value_or(""),
                .name = text(each, "name").value_or("")});
        }
        const Value* more = find(page, "more");
        if (more && *more == true && !series->empty()) {
            return askSeries({{"limit", largestSeriesPage}, {"after", names_.back().series}});
        }
        choose();
    }

    void choose()
    {
        if (names_.empty()) {
            if (session_.arguments().json ? session_.print("{}\n") : session_.print("nothing is recorded yet\n")) {
                session_.finish(exitStatus::success);
            }
            return;
        }
        const std::string& wanted = session_.arguments().sensor;
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
        if (report()) {
            session_.finish(exitStatus::success);
        }
    }

    /// False when it has ended the session by itself.
    bool report()
    {
        const Arguments& arguments = session_.arguments();
        if (arguments.json) {
            return session_.print(terminalJson(answer_) + '\n');
        }
        if (arguments.csv) {
            return session_.print(historyCsv(answer_));
        }
        const std::string title = fmt::format("{}, {}", chosen_.name, range_.title);
        const Plot plot = historyPlot(answer_, title, until_ - range_.span, until_);
        if (arguments.svgPath.empty()) {
            return session_.print(plotLines(plot, terminalColumns().value_or(usualColumns), historyPlotRows));
        }
        if (arguments.svgPath == "-") {
            return session_.print(plotSvg(plot));
        }
        if (const std::string failure = writeFile(arguments.svgPath, plotSvg(plot)); !failure.empty()) {
            session_.fail(exitStatus::refused, failure);
            return false;
        }
        return true;
    }

    Session& session_;
    const Range range_;
    const double until_; ///< s since 1970
    std::vector<SeriesName> names_;
    SeriesName chosen_;
    Value samples_ = Value::array();
    Value answer_;
};

} // namespace

int runHistory(Session& session)
{
    HistoryQuery query(session);
    return session.run([&query] { query.start(); });
}

} // namespace meridal
