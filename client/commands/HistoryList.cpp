// SPDX-License-Identifier: Apache-2.0
#include "client/commands/HistoryList.h"

#include "client/commands/Samples.h"
#include "client/screen/Format.h"
#include "client/screen/Terminal.h"
#include "client/screen/WallClock.h"
#include "client/views/Answers.h"
#include "client/views/HistoryListView.h"
#include "client/views/HistoryView.h"

#include <algorithm>
#include <utility>

namespace meridal {

namespace {

constexpr std::size_t mostAskedAtOnce = 8;
constexpr double newest = 3600; // s; older is not how it is now

} // namespace

HistoryList::HistoryList(Session& session, TimeStretch stretch, std::string resolution, bool json)
    : session_(session), stretch_(std::move(stretch)), resolution_(std::move(resolution)), json_(json)
{
}

void HistoryList::show(const Value& series, std::span<const OfferedSeries> names)
{
    for (std::size_t place = 0; place < names.size(); ++place) {
        entries_.push_back({.description = series[place], .answer = {}, .latest = {}});
        entries_.back().description["label"] = names[place].label;
    }
    std::stable_sort(entries_.begin(), entries_.end(), [](const Entry& first, const Entry& second) {
        const auto order = [](const Entry& entry) {
            return std::pair(text(entry.description, "collector"), text(entry.description, "label"));
        };
        return order(first) < order(second);
    });
    if (entries_.empty()) {
        return report();
    }
    askMore();
}

void HistoryList::askMore()
{
    while (asked_ < entries_.size() && asked_ - answered_ < mostAskedAtOnce) {
        ask(asked_++);
    }
}

void HistoryList::ask(std::size_t entry)
{
    const std::string series = text(entries_[entry].description, "series").value_or("");
    const SamplesQuestion question{
        .series = series, .resolution = resolution_, .from = stretch_.from, .until = stretch_.until};
    askSamples(session_, question, [this, entry, series](Value answer) {
        entries_[entry].answer = std::move(answer);
        const double now = wallTime();
        askSamples(session_,
            {.series = series, .resolution = "hour", .from = now - newest, .until = now + 1, .wanted = 1},
            [this, entry](const Value& latest) {
                const Value& samples = latest.at("samples");
                entries_[entry].latest = samples.empty() ? Value() : samples.back();
                finished();
            });
    });
}

void HistoryList::finished()
{
    ++answered_;
    answered_ == entries_.size() ? report() : askMore();
}

void HistoryList::report()
{
    if (!json_) {
        return session_.conclude(lines());
    }
    Value all = Value::array();
    for (Entry& entry : entries_) {
        entry.description["latest"] = std::move(entry.latest);
        all.push_back(std::move(entry.description));
    }
    session_.conclude(answerLine({{"series", std::move(all)}}));
}

Lines HistoryList::lines() const
{
    std::vector<RecordedFigure> figures;
    double from = stretch_.from > 0 ? stretch_.from : stretch_.until; // all that is kept begins with the first of it
    for (const Entry& entry : entries_) {
        const Value* names = find(entry.answer, "values");
        const std::size_t count = names && names->is_array() ? names->size() : 0;
        for (std::size_t figure = 0; figure < count; ++figure) {
            const std::string name = (*names)[figure].is_string() ? (*names)[figure].get<std::string>() : "";
            const auto latest = historyPoints({{"samples", Value::array({entry.latest})}}, figure, wallTime());
            auto points = historyPoints(entry.answer, figure, wallTime());
            if (count > 1 && latest.empty() && points.empty()) {
                continue; // this system does not tell it
            }
            from = points.empty() ? from : std::min(from, points.front().time);
            figures.push_back({.group = text(entry.description, "collector").value_or(""),
                .label = text(entry.description, "label").value_or("") + (count > 1 ? "/" + name : ""),
                .unit = text(entry.description, "unit").value_or(""),
                .latest = latest.empty() ? std::nullopt : std::optional(latest.front().value),
                .points = std::move(points)});
        }
    }
    return historyListLines(figures, stretch_.title, from, stretch_.until, terminalColumns().value_or(0));
}

} // namespace meridal
