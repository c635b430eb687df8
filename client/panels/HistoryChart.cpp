// SPDX-License-Identifier: Apache-2.0
#include "client/panels/HistoryChart.h"

#include "base/Text.h"
#include "client/plot/Plot.h"
#include "client/screen/Format.h"
#include "client/screen/WallClock.h"
#include "client/views/HistoryView.h"
#include "wire/Methods.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <set>

namespace meridal {

namespace {

constexpr double leastSpan = 60;        // s; ten samples of the finest resolution
constexpr double mostSpan = 3660 * day; // the record forgets what is older
constexpr double finestInterval = 6;    // s
constexpr double samplesAcross = 600;   // of a plot that goes on with the time
constexpr int mostSamples = 1000;       // on a page
constexpr std::size_t mostPagesOfSamples = 32;
constexpr std::string_view samplesName = "samples ";

struct ChartRange {
    char key;
    double span; ///< s
    const char* help;
};
constexpr std::array<ChartRange, 5> chartRanges = {{{'h', 3600, "an hour"}, {'d', day, "a day"},
    {'w', 7 * day, "a week"}, {'m', 30 * day, "30 days"}, {'y', 365 * day, "a year"}}};

/// How often a plot that goes on with the time is drawn anew, s.
double stepOf(double span) { return std::max(finestInterval, std::floor(span / samplesAcross)); }

/// Where a plot ends that goes on with the time, s since 1970.
double latestOf(double span, const PanelView& view)
{
    const double step = stepOf(span);
    return (std::floor(view.now / step) + 1) * step;
}

/// The display column of the vertical axis in a drawn line; nothing where it is no row of a drawing.
std::optional<int> axisColumn(const Line& line)
{
    const std::string text = line.empty() ? std::string() : line.front().text;
    const bool isRow = text.ends_with("│") || text.ends_with("┤");
    return isRow ? std::optional(displayWidth(text) - 1) : std::nullopt;
}

} // namespace

void HistoryChart::choose(std::vector<ChartFigure> figures)
{
    figures_ = std::move(figures);
    std::set<std::string> wanted;
    for (const ChartFigure& each : figures_) {
        wanted.insert(each.series);
    }
    std::erase_if(samples_, [&](const auto& each) { return !wanted.contains(each.first); });
    for (const std::string& series : wanted) {
        samples_.try_emplace(series);
    }
    mark_.reset();
}

HistoryChart::Stretch HistoryChart::stretch(const PanelView& view) const
{
    const double latest = latestOf(span_, view);
    const double usual = view.moment ? std::min(*view.moment + span_ / 2, latest) : latest;
    const double until = until_.value_or(usual);
    return {until - span_, until};
}

void HistoryChart::show(Stretch wanted, const PanelView& view)
{
    span_ = std::clamp(wanted.span(), leastSpan, mostSpan);
    const double latest = latestOf(wanted.span(), view);
    const bool isUpToNow = !view.moment && wanted.until >= view.now;
    until_ =
        isUpToNow ? std::nullopt : std::optional(std::clamp(std::round(wanted.until), span_, std::max(latest, span_)));
    mark_.reset();
}

void HistoryChart::addQuestions(std::vector<PanelQuestion>& questions, const PanelView& view) const
{
    const Stretch shown = stretch(view);
    const bool goesOn = !until_ && !view.moment;
    for (const auto& [series, samples] : samples_) {
        for (std::size_t page = 0; page < samples.pages.size(); ++page) {
            Value parameters = {{"series", series}, {"resolution", resolutionFor(shown.from, shown.until, view.now)},
                {"from", shown.from}, {"band", true}, {"limit", mostSamples}};
            if (!goesOn) {
                parameters["until"] = shown.until;
            }
            if (page > 0) {
                parameters["before"] = samples.pages[page].before;
            }
            questions.push_back(
                {.name = std::string(samplesName) + series + (page > 0 ? " " + std::to_string(page) : ""),
                    .method = method::historySamples,
                    .parameters = std::move(parameters),
                    .interval = goesOn && page == 0 ? stepOf(span_) : 0});
        }
    }
}

bool HistoryChart::take(const PanelAnswer& answer)
{
    if (!answer.name.starts_with(samplesName)) {
        return false;
    }
    const std::string_view name = answer.name.substr(samplesName.size());
    for (auto& [series, samples] : samples_) {
        for (std::size_t page = 0; page < samples.pages.size(); ++page) {
            if (name != series + (page > 0 ? " " + std::to_string(page) : "")) {
                continue;
            }
            samples.complaint = answer.result ? std::string() : printable(answer.result.error().message);
            samples.pages[page].answer = answer.result ? *answer.result : Value();
            const Value* more = find(samples.pages[page].answer, "more");
            const Value* next = find(samples.pages[page].answer, "next");
            if (!more || *more != true || !next || page + 1 >= mostPagesOfSamples) {
                samples.pages.resize(page + 1);
            } else if (page + 1 == samples.pages.size() || samples.pages[page + 1].before != *next) {
                samples.pages.resize(page + 1);
                samples.pages.push_back({.before = *next, .answer = {}});
            }
            return true;
        }
    }
    return true;
}

/// The newest page's answer with the samples of all, oldest first; null while there is none.
Value HistoryChart::samplesOf(const std::string& series) const
{
    const Pages& samples = samples_.at(series);
    Value all = Value::array();
    for (auto page = samples.pages.rbegin(); page != samples.pages.rend(); ++page) {
        if (const Value* part = find(page->answer, "samples"); part && part->is_array()) {
            all.insert(all.end(), part->begin(), part->end());
        }
    }
    Value answer = samples.pages.front().answer;
    if (answer.is_object()) {
        answer["samples"] = std::move(all);
    }
    return answer;
}

Lines HistoryChart::lines(const PanelView& view)
{
    std::vector<HistoryCurve> curves;
    std::string complaint;
    for (const ChartFigure& each : figures_) {
        Value answer = samplesOf(each.series);
        complaint = complaint.empty() ? samples_.at(each.series).complaint : complaint;
        if (answer.is_object()) {
            curves.push_back({.label = each.label,
                .answer = each.figure.empty() ? std::move(answer) : withFigure(answer, each.figure)});
        }
    }
    if (curves.empty()) {
        return complaint.empty() ? Lines() : Lines{{{Style::Warning, complaint}}};
    }
    const Stretch shown = stretch(view);
    const std::vector<Plot> plots = historyPlots(curves, formatSpan(shown.span()), shown.from, shown.until, view.now);
    int taken = 1; // the line of times
    for (const Plot& plot : plots) {
        constexpr int titleAndAxis = 3;
        taken += titleAndAxis + static_cast<int>(plot.series.size());
    }
    shown_ = {titleLine(shown)};
    for (const Plot& plot : plots) {
        appendLines(shown_, plotLines(plot, view.columns, (view.rows - taken) / static_cast<int>(plots.size())));
    }
    return shown_;
}

Line HistoryChart::titleLine(const Stretch& shown) const
{
    const char* format = shown.span() > day ? "%d %b %Y %H:%M" : "%d %b %H:%M:%S";
    Line line{{Style::Faint, formatTime(shown.from, format) + " to " + formatTime(shown.until, format)}};
    if (mark_) {
        line = {{Style::Title, "from " + formatTime(*mark_, format) + ": click where the stretch is to end"}};
    }
    return line;
}

bool HistoryChart::press(const Key& key, const PanelView& view)
{
    constexpr double closer = 0.5;
    constexpr double aQuarter = 0.25;
    const auto* range = std::find_if(chartRanges.begin(), chartRanges.end(),
        [&](const ChartRange& each) { return key.is(static_cast<char32_t>(each.key)); });
    if (key.is('+') || key.is('=') || key.is('-')) {
        zoom(key.is('-') ? 1 / closer : closer, middle(view), view);
    } else if (key.kind == Key::Kind::WheelUp || key.kind == Key::Kind::WheelDown) {
        zoom(key.kind == Key::Kind::WheelUp ? closer : 1 / closer, timeAt(key, view).value_or(middle(view)), view);
    } else if (key.kind == Key::Kind::Left || key.kind == Key::Kind::Right) {
        pan(key.kind == Key::Kind::Left ? -aQuarter : aQuarter, view);
    } else if (key.kind == Key::Kind::Escape && mark_) {
        mark_.reset();
    } else if (key.is('n')) {
        until_.reset();
        mark_.reset();
    } else if (range != chartRanges.end()) {
        show({stretch(view).until - range->span, stretch(view).until}, view);
    } else if (key.kind == Key::Kind::Click) {
        click(key, view);
    } else {
        return false;
    }
    return true;
}

/// Around a moment, which stays where it is on the screen.
void HistoryChart::zoom(double factor, double around, const PanelView& view)
{
    const Stretch now = stretch(view);
    const double span = std::clamp(now.span() * factor, leastSpan, mostSpan);
    const bool endsNow = !until_ && !view.moment; // one that goes on with the time does so, closer or wider
    const double until = endsNow && factor > 1 ? now.until : around + (now.until - around) * span / now.span();
    show({until - span, until}, view);
}

void HistoryChart::pan(double share, const PanelView& view)
{
    const Stretch now = stretch(view);
    const double way = now.span() * share;
    show({now.from + way, now.until + way}, view);
}

/// Two clicks are the ends of the stretch to show.
void HistoryChart::click(const Key& key, const PanelView& view)
{
    const auto time = timeAt(key, view);
    if (!time || !mark_) {
        mark_ = time;
        return;
    }
    show({std::min(*mark_, *time), std::max(*mark_, *time)}, view);
}

std::optional<double> HistoryChart::timeAt(const Key& key, const PanelView& view) const
{
    const auto count = static_cast<int>(shown_.size());
    for (int row = std::min(key.row, count - 1); row >= 0; --row) { // what is below a drawing belongs to it
        if (const auto axis = axisColumn(shown_[static_cast<std::size_t>(row)])) {
            const int width = std::max(view.columns - *axis - 1, 1);
            const double across = std::clamp((key.column - *axis - 1 + 0.5) / width, 0.0, 1.0);
            const Stretch shown = stretch(view);
            return shown.from + across * shown.span();
        }
    }
    return std::nullopt;
}

double HistoryChart::middle(const PanelView& view) const
{
    const Stretch shown = stretch(view);
    return shown.until - shown.span() / 2;
}

std::vector<PanelKey> HistoryChart::keys()
{
    std::vector<PanelKey> keys = {{"+-", "zoom", "closer and wider; so does the wheel of the mouse, where it points"},
        {"←→", "pan", "earlier and later; two clicks are the ends of what is to be shown"},
        {"n", "now", "on with the time again"}};
    for (const ChartRange& each : chartRanges) {
        keys.push_back({{each.key}, "", std::string("show ") + each.help});
    }
    return keys;
}

} // namespace meridal
