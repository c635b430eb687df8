// SPDX-License-Identifier: Apache-2.0
#include "base/Text.h"
#include "client/panels/Panels.h"
#include "client/panels/PastMoment.h"
#include "client/plot/BatteryPlot.h"
#include "client/screen/TextTable.h"
#include "client/screen/WallClock.h"
#include "client/views/AtView.h"
#include "client/views/BatteryView.h"
#include "client/views/HistoryView.h"
#include "wire/Methods.h"

#include <algorithm>
#include <array>
#include <string>
#include <utility>

namespace meridal {

namespace {

constexpr double batteryInterval = 5; // s; a battery that drains is read once a minute
constexpr double courseInterval = 60; // s
constexpr int mostHealthRows = 500;
constexpr int leastPlotRows = 4;
constexpr int mostPlotRows = 10;

/// How charge and power went of late, and health for ever.
enum class BatteryCourse : std::uint8_t { Charge, Power, Health };
struct CourseChoice {
    BatteryCourse course;
    char key;
    const char* word;
    const char* help;
};
constexpr std::array<CourseChoice, 3> courseChoices = {
    {{BatteryCourse::Charge, 'c', "charge", "how the charge went over the last day"},
        {BatteryCourse::Power, 'w', "power", "how much power was drawn and put in over the last day"},
        {BatteryCourse::Health, 'h', "health", "how the health went since the record began"}}};

/// The batteries of this machine and of what is connected to it, and how they came to be as they are.
class BatteryPanel final : public Panel {
public:
    std::string_view name() const override { return "battery"; }
    std::string_view title() const override { return "Battery"; }

    std::vector<PanelQuestion> questions(const PanelView& view) const override
    {
        std::vector<PanelQuestion> questions;
        if (view.moment) {
            past_.addQuestion(questions, view);
            return questions;
        }
        questions.push_back({.name = "state",
            .method = method::batteryState,
            .parameters = {{"passive", true}},
            .interval = batteryInterval});
        if (!hasBattery()) {
            return questions;
        }
        questions.push_back(courseQuestion());
        return questions;
    }

    void take(const PanelAnswer& answer) override
    {
        if (past_.take(answer)) {
            return;
        }
        if (answer.name != "state") {
            course_ = answer.result ? *answer.result : Value(); // not every battery has a record
            return;
        }
        complaint_ = answer.result ? std::string() : printable(answer.result.error().message);
        if (answer.result) {
            state_ = *answer.result;
        }
    }

    Lines lines(const PanelView& view) override
    {
        const std::string& complaint = view.moment ? past_.complaint() : complaint_;
        if (!complaint.empty()) {
            return {{{Style::Warning, complaint}}};
        }
        if (view.moment) {
            const Value* then = past_.of(view);
            return then ? foldedLines(batteryLinesAt(*then), view.columns) : Lines{};
        }
        if (!state_.is_object()) {
            return {};
        }
        Lines lines = foldedLines(batteryLines(state_, view.columns), view.columns);
        if (const auto plot = coursePlot(view); plot && hasBattery()) {
            constexpr int around = 5; // a blank, the title, the axis and the summary
            const int rows =
                std::clamp(view.rows - static_cast<int>(lines.size()) - around, leastPlotRows, mostPlotRows);
            lines.emplace_back();
            appendLines(lines, plotLines(*plot, view.columns, rows));
        }
        return lines;
    }

    bool showsPast() const override { return true; }

    KeyOutcome press(const Key& key, const PanelView&) override
    {
        const auto* choice = std::find_if(courseChoices.begin(), courseChoices.end(),
            [&](const CourseChoice& each) { return key.is(static_cast<char32_t>(each.key)); });
        if (choice == courseChoices.end() || !hasBattery()) {
            return KeyOutcome::notTaken();
        }
        if (choice != choice_) {
            course_ = Value();
        }
        choice_ = choice;
        return KeyOutcome::taken();
    }

    std::vector<PanelKey> keys() const override
    {
        std::vector<PanelKey> keys;
        for (const CourseChoice& each : courseChoices) {
            if (hasBattery()) {
                keys.push_back({{each.key}, each.word, each.help});
            }
        }
        return keys;
    }

private:
    bool hasBattery() const
    {
        const Value* batteries = find(state_, "batteries");
        return batteries && batteries->is_array() && !batteries->empty();
    }

    PanelQuestion courseQuestion() const
    {
        if (choice_->course == BatteryCourse::Health) {
            return {.name = choice_->word,
                .method = method::batteryHistory,
                .parameters = {{"figure", "health"}, {"limit", mostHealthRows}},
                .interval = courseInterval};
        }
        return {.name = choice_->word,
            .method = method::historySamples,
            .parameters = {{"series", std::string("battery/") + choice_->word}, {"resolution", "day"}, {"band", true}},
            .interval = courseInterval};
    }

    std::optional<Plot> coursePlot(const PanelView& view) const
    {
        if (choice_->course == BatteryCourse::Health) {
            const Value* rows = find(course_, "rows");
            if (!rows || !rows->is_array()) {
                return std::nullopt;
            }
            Plot plot = batteryPlot(*rows, "Health", "%", view.now);
            plot.most = 100;
            return plot.series.empty() ? std::nullopt : std::optional(plot);
        }
        if (!course_.is_object()) {
            return std::nullopt;
        }
        const HistoryCurve curve{
            .label = choice_->course == BatteryCourse::Charge ? "Charge" : "Power", .answer = course_};
        std::vector<Plot> plots = historyPlots({&curve, 1}, "last day", view.now - day, view.now, view.now);
        if (plots.empty()) {
            return std::nullopt;
        }
        if (choice_->course == BatteryCourse::Charge) {
            plots.front().least = 0;
            plots.front().most = 100;
        }
        return plots.front();
    }

    Value state_;
    std::string complaint_; ///< why the latest question was refused
    const CourseChoice* choice_ = courseChoices.data();
    Value course_; ///< the latest answer about it
    PastMoment past_;
};

} // namespace

std::unique_ptr<Panel> makeBatteryPanel() { return std::make_unique<BatteryPanel>(); }

} // namespace meridal
