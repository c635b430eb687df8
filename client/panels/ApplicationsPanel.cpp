// SPDX-License-Identifier: Apache-2.0
#include "base/Text.h"
#include "client/panels/Panels.h"
#include "client/panels/PastMoment.h"
#include "client/screen/WallClock.h"
#include "client/views/ApplicationRates.h"
#include "client/views/MomentState.h"
#include "wire/Methods.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string>
#include <utility>

namespace meridal {

namespace {

constexpr double liveInterval = 2;    // s
constexpr double totalsInterval = 30; // s
constexpr int largestPageOfGroups = 500;
constexpr double totalsStep = 60; // s; an end that moved with every second would be another question each time

/// What the totals are of.
struct TotalsPeriod {
    char key;
    double span; ///< s
    const char* word;
    const char* title;
};
constexpr std::array<TotalsPeriod, 5> totalsPeriods = {{{'h', 3600, "hour", "hour"}, {'d', day, "day", "day"},
    {'w', 7 * day, "week", "week"}, {'m', 30 * day, "month", "30 days"}, {'y', 365 * day, "year", "year"}}};

struct RankedBy {
    ApplicationFigure figure;
    const char* word; ///< as the daemon calls it
};
constexpr std::array<RankedBy, 5> rankings = {{{ApplicationFigure::Cpu, "cpu"}, {ApplicationFigure::Memory, "memory"},
    {ApplicationFigure::Disk, "disk"}, {ApplicationFigure::Network, "network"}, {ApplicationFigure::Energy, "energy"}}};

/// What applications use now, or have used over a time.
class ApplicationsPanel final : public Panel {
public:
    std::string_view name() const override { return "applications"; }
    std::string_view title() const override { return "Apps"; } // all titles fit 80 columns

    std::vector<PanelQuestion> questions(const PanelView& view) const override
    {
        std::vector<PanelQuestion> questions;
        if (period_) {
            const double until = view.moment.value_or(std::floor(view.now / totalsStep) * totalsStep);
            Value parameters = {
                {"from", until - period_->span}, {"by", rankings.at(ranking_).word}, {"limit", largestPageOfGroups}};
            if (view.moment) {
                parameters["until"] = until;
            }
            questions.push_back({.name = "totals",
                .method = method::groupsHistory,
                .parameters = std::move(parameters),
                .interval = view.moment ? 0 : totalsInterval});
        } else if (view.moment) {
            past_.addQuestion(questions, view);
        } else {
            questions.push_back({.name = "live",
                .method = method::groupsWatch,
                .parameters = {{"interval", liveInterval}},
                .kind = PanelQuestion::Kind::Watch});
        }
        return questions;
    }

    void take(const PanelAnswer& answer) override
    {
        if (past_.take(answer)) {
            return;
        }
        complaint_ = answer.result ? std::string() : printable(answer.result.error().message);
        if (answer.result && answer.name == "live") {
            rates_.take(*answer.result);
        } else if (answer.result) {
            totals_ = *answer.result;
        }
    }

    Lines lines(const PanelView& view) override
    {
        const std::string& complaint = view.moment && !period_ ? past_.complaint() : complaint_;
        if (!complaint.empty()) {
            return {{{Style::Warning, complaint}}};
        }
        Lines lines = period_ ? totalLines(view) : view.moment ? linesOfThen(view) : liveLines(view);
        if (!lines.empty()) {
            lines.insert(lines.begin(), heading(view));
        }
        return lines;
    }

    bool showsPast() const override { return true; }

    KeyOutcome press(const Key& key, const PanelView&) override
    {
        const std::size_t count = rankings.size();
        if (key.kind == Key::Kind::Left || key.kind == Key::Kind::Right) {
            ranking_ = (ranking_ + (key.kind == Key::Kind::Right ? 1 : count - 1)) % count;
            return KeyOutcome::taken();
        }
        if (key.is('l')) {
            period_ = nullptr;
            return KeyOutcome::taken();
        }
        const auto* period = std::find_if(totalsPeriods.begin(), totalsPeriods.end(),
            [&](const TotalsPeriod& each) { return key.is(static_cast<char32_t>(each.key)); });
        if (period == totalsPeriods.end()) {
            return KeyOutcome::notTaken();
        }
        period_ = period;
        totals_ = Value(); // of another time
        return KeyOutcome::taken();
    }

    std::vector<PanelKey> keys() const override
    {
        std::vector<PanelKey> keys = {{"←→", "sort", "sort by the next figure"}, {"l", "live", "what is used now"}};
        for (const TotalsPeriod& each : totalsPeriods) {
            keys.push_back({{each.key}, each.word, std::string("what was used over the last ") + each.title});
        }
        return keys;
    }

private:
    ApplicationFigure figure() const { return rankings.at(ranking_).figure; }

    Line heading(const PanelView& view) const
    {
        const std::string time = period_ ? std::string("used over ") + (view.moment ? "the " : "the last ")
                + period_->title + (view.moment ? " before that moment" : "")
            : view.moment ? "used at that moment"
                          : "used now";
        return {{Style::Title, time}, {Style::Faint, std::string(", by ") + rankings.at(ranking_).word}};
    }

    Lines liveLines(const PanelView& view) const
    {
        return rates_.isKnown() ? applicationRateLines(rates_.ranked(figure()), figure(), view.columns) : Lines();
    }

    /// The totals of another figure's ranking are shown until those of this one are there.
    Lines totalLines(const PanelView& view) const
    {
        const Value* groups = find(totals_, "groups");
        return groups ? applicationLines(foldedApplications(*groups, 0), figure(), view.columns) : Lines();
    }

    Lines linesOfThen(const PanelView& view) const
    {
        const Value* then = past_.of(view);
        if (!then) {
            return {};
        }
        const std::vector<ApplicationRate> rates = ratesOfMoment(*then, figure());
        return rates.empty() ? Lines{{{Style::Plain, "no application was recorded at that moment"}}}
                             : applicationRateLines(rates, figure(), view.columns);
    }

    const TotalsPeriod* period_ = nullptr; ///< none: now
    std::size_t ranking_ = 0;
    ApplicationRates rates_;
    Value totals_;
    PastMoment past_;
    std::string complaint_;
};

} // namespace

std::unique_ptr<Panel> makeApplicationsPanel() { return std::make_unique<ApplicationsPanel>(); }

} // namespace meridal
