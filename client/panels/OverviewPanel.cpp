// SPDX-License-Identifier: Apache-2.0
#include "client/panels/Panels.h"
#include "client/panels/PastMoment.h"
#include "client/views/MomentState.h"
#include "client/views/OverviewView.h"
#include "wire/Methods.h"

namespace meridal {

namespace {

constexpr double overviewInterval = 2;       // s
constexpr double sensorsInterval = 4;        // s; passive: they are read when they are read
constexpr double batteryGlanceInterval = 20; // s
constexpr int mostSensors = 500;

/// Members that are missing stay as they were, one that is null has gone.
void mergeChanges(Value& state, const Value& changes)
{
    for (const auto& [key, entry] : changes.get_ref<const Value::object_t&>()) {
        if (entry.is_null()) {
            state.erase(key);
        } else {
            state[key] = entry;
        }
    }
}

/// The whole machine at a glance.
class OverviewPanel final : public Panel {
public:
    std::string_view name() const override { return "overview"; }
    std::string_view title() const override { return "Overview"; }

    std::vector<PanelQuestion> questions(const PanelView& view) const override
    {
        if (view.moment) {
            std::vector<PanelQuestion> questions = {{.name = "sensors",
                .method = method::sensorsList,
                .parameters = {{"passive", true}, {"limit", mostSensors}}}}; // for their limits
            past_.addQuestion(questions, view);
            return questions;
        }
        const Value watching = {{"interval", overviewInterval}};
        return {{.name = "machine",
                    .method = method::machineWatch,
                    .parameters = watching,
                    .kind = PanelQuestion::Kind::Watch},
            {.name = "applications",
                .method = method::groupsWatch,
                .parameters = watching,
                .kind = PanelQuestion::Kind::Watch},
            {.name = "sensors",
                .method = method::sensorsList,
                .parameters = {{"passive", true}, {"limit", mostSensors}},
                .interval = sensorsInterval},
            {.name = "battery",
                .method = method::batteryState,
                .parameters = {{"passive", true}},
                .interval = batteryGlanceInterval}};
    }

    void take(const PanelAnswer& answer) override
    {
        if (past_.take(answer)) {
            return;
        }
        if (!answer.result || !answer.result->is_object()) {
            return; // what a daemon does not tell is left out here; its own panel says why
        }
        if (answer.name == "machine" && answer.isChange && figures_.machine.is_object()) {
            mergeChanges(figures_.machine, *answer.result);
        } else if (answer.name == "machine") {
            figures_.machine = *answer.result;
        } else if (answer.name == "applications") {
            rates_.take(*answer.result);
        } else if (answer.name == "sensors") {
            figures_.sensors = *answer.result;
        } else if (answer.name == "battery") {
            figures_.battery = *answer.result;
        }
    }

    Lines lines(const PanelView& view) override
    {
        if (view.moment) {
            return linesOfThen(view);
        }
        figures_.applications =
            rates_.isKnown() ? rates_.ranked(ApplicationFigure::Cpu) : std::vector<ApplicationRate>();
        return overviewLines(figures_, view.rows, view.columns);
    }

    bool showsPast() const override { return true; }

    KeyOutcome press(const Key& key, const PanelView&) override
    {
        return key.kind == Key::Kind::Enter ? KeyOutcome::wishing(OpenWish{.panel = "applications", .argument = {}})
                                            : KeyOutcome::notTaken();
    }
    std::vector<PanelKey> keys() const override { return {{"Enter", "applications", "the panel of all applications"}}; }

private:
    Lines linesOfThen(const PanelView& view) const
    {
        const Value* then = past_.of(view);
        if (!then) {
            return past_.complaint().empty() ? Lines() : Lines{{{Style::Warning, past_.complaint()}}};
        }
        const Value* listed = find(figures_.sensors, "sensors");
        const OverviewFigures figures{.machine = machineOfMoment(*then),
            .sensors = {{"sensors", sensorsOfMoment(*then, listed ? *listed : Value())}},
            .battery = batteryOfMoment(*then),
            .applications = ratesOfMoment(*then, ApplicationFigure::Cpu)};
        Lines lines = overviewLines(figures, view.rows, view.columns);
        return lines.empty() ? Lines{{{Style::Plain, "nothing was recorded at that moment"}}} : lines;
    }

    OverviewFigures figures_;
    ApplicationRates rates_;
    PastMoment past_;
};

} // namespace

std::unique_ptr<Panel> makeOverviewPanel() { return std::make_unique<OverviewPanel>(); }

} // namespace meridal
