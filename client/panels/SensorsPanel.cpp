// SPDX-License-Identifier: Apache-2.0
#include "client/panels/PageWindow.h"
#include "client/panels/PagedList.h"
#include "client/panels/Panels.h"
#include "client/panels/PastMoment.h"
#include "client/panels/RowCursor.h"
#include "client/views/HistoryView.h"
#include "client/views/SensorsView.h"
#include "wire/Methods.h"

#include <algorithm>
#include <array>
#include <utility>

namespace meridal {

namespace {

constexpr double sensorInterval = 2;          // s, as the daemon reads them
constexpr double sensorCourse = 600;          // s
constexpr int samplesOfCourse = 100;          // of 6 s
constexpr std::size_t mostSensorCourses = 64; // asked for at once
constexpr std::string_view sensorSeries = "sensors/";

/// What the chips measure: values, limits, alarms, and how it went over the last minutes.
class SensorsPanel final : public Panel {
public:
    std::string_view name() const override { return "sensors"; }
    std::string_view title() const override { return "Sensors"; }

    std::vector<PanelQuestion> questions(const PanelView& view) const override
    {
        std::vector<PanelQuestion> questions;
        sensors_.addQuestions(questions);
        past_.addQuestion(questions, view);
        const Value sensors = view.moment ? Value::array() : sensors_.rows();
        for (std::size_t place = 0; place < std::min(sensors.size(), mostSensorCourses); ++place) {
            const std::string series = std::string(sensorSeries) + text(sensors[place], "key").value_or("");
            questions.push_back({.name = series,
                .method = method::historySamples,
                .parameters = {{"series", series}, {"limit", samplesOfCourse}}});
        }
        return questions;
    }

    void take(const PanelAnswer& answer) override
    {
        if (past_.take(answer)) {
            return;
        }
        if (sensors_.take(answer)) {
            const Value* list = answer.result ? find(*answer.result, "sensors") : nullptr;
            for (const Value& sensor : list && list->is_array() ? *list : Value::array()) {
                if (const auto value = number(sensor, "value")) {
                    courses_.add(text(sensor, "key").value_or(""), answer.time, *value);
                }
            }
        } else if (answer.name.starts_with(sensorSeries)
            && answer.result) { // what is not recorded has no course before now
            courses_.fill(
                std::string(answer.name.substr(sensorSeries.size())), historyPoints(*answer.result, 0, answer.time));
        }
    }

    Lines lines(const PanelView& view) override
    {
        const std::string& complaint = view.moment ? past_.complaint() : sensors_.complaint();
        if (!complaint.empty()) {
            return {{{Style::Warning, complaint}}};
        }
        if (view.moment) {
            const Value* then = past_.of(view);
            return then ? linesOf(*then, view.columns) : Lines{};
        }
        return sensors_.isKnown() ? listLines(view) : Lines{};
    }

    bool showsPast() const override { return true; }

    KeyOutcome press(const Key& key, const PanelView& view) override
    {
        if (view.moment || cursor_.isEmpty()) {
            return KeyOutcome::notTaken();
        }
        const bool isClick = key.kind == Key::Kind::Click;
        const auto clicked =
            std::find(lineOfSensor_.begin(), lineOfSensor_.end(), isClick ? window_.lineAt(key.row).value_or(0) : 0);
        const auto place = static_cast<std::size_t>(clicked - lineOfSensor_.begin());
        if (key.kind == Key::Kind::Enter || (isClick && place == cursor_.chosen())) {
            return KeyOutcome::wishing(
                OpenWish{.panel = "history", .argument = {{"series", std::string(sensorSeries) + cursor_.name()}}});
        }
        if (isClick && clicked != lineOfSensor_.end()) {
            cursor_.choose(place);
            return KeyOutcome::taken();
        }
        return cursor_.press(key) ? KeyOutcome::taken() : KeyOutcome::notTaken();
    }

    std::vector<PanelKey> keys() const override
    {
        return {{"Enter", "history", "what is recorded of the chosen sensor, to zoom and pan in"}};
    }

private:
    /// The chosen one stands out. Fans come last, as in the view; whatever is no sensor's line is a title there.
    Lines listLines(const PanelView& view)
    {
        const Value sensors = sensors_.rows();
        Lines page = sensorLines(sensors, view.columns, &courses_);
        std::vector<std::string> names;
        for (const bool fans : {false, true}) {
            for (const Value& sensor : sensors) {
                if ((text(sensor, "kind") == "fan") == fans) {
                    names.push_back(text(sensor, "key").value_or(""));
                }
            }
        }
        lineOfSensor_.clear();
        for (std::size_t line = 0; line < page.size() && !names.empty(); ++line) {
            const bool isTitle = page[line].empty() || page[line].front().style == Style::Title
                || page[line].front().style == Style::Heading;
            if (!isTitle) {
                lineOfSensor_.push_back(static_cast<int>(line));
            }
        }
        cursor_.setRows(names, view.rows);
        const std::size_t chosen = cursor_.chosen();
        const auto line = chosen < lineOfSensor_.size() ? std::optional(lineOfSensor_[chosen]) : std::nullopt;
        return window_.cut(page, 1, line, view.rows, view.columns);
    }

    /// The readings of then, with the limits of today.
    Lines linesOf(const Value& then, int columns) const
    {
        Value readings = Value::array();
        for (const auto& [list, kind] : std::array<std::pair<const char*, const char*>, 3>{
                 {{"temperatures", "temperature"}, {"fans", "fan"}, {"power", "power"}}}) {
            const Value* entries = find(then, list);
            for (const Value& entry : entries && entries->is_array() ? *entries : Value::array()) {
                if (entry.is_object()) {
                    readings.push_back(readingOf(entry, kind));
                }
            }
        }
        if (readings.empty()) {
            return {{{Style::Plain, "no sensor was recorded at that moment"}}};
        }
        std::stable_sort(readings.begin(), readings.end(), [](const Value& first, const Value& second) {
            return text(first, "chip").value_or("") < text(second, "chip").value_or("");
        });
        return sensorLines(readings, columns);
    }

    Value readingOf(const Value& entry, const char* kind) const
    {
        const std::string series = text(entry, "series").value_or("");
        Value reading = entry;
        reading["kind"] = kind;
        for (const Value& sensor : sensors_.rows()) {
            if (std::string(sensorSeries) + text(sensor, "key").value_or("") == series) {
                reading = sensor;
            }
        }
        const Value* value = find(entry, "value");
        reading["value"] = value ? *value : Value();
        reading["alarm"] = nullptr;
        return reading;
    }

    PagedList sensors_{{.name = "sensors",
        .method = method::sensorsList,
        .list = "sensors",
        .parameters = {{"limit", 500}},
        .interval = sensorInterval}};
    PastMoment past_;
    RecentCourses courses_{sensorCourse};
    RowCursor cursor_;
    PageWindow window_;
    std::vector<int> lineOfSensor_; ///< among all lines of the page
};

} // namespace

std::unique_ptr<Panel> makeSensorsPanel() { return std::make_unique<SensorsPanel>(); }

} // namespace meridal
