// SPDX-License-Identifier: Apache-2.0
#include "metrics/RecordedFamilies.h"

#include "metrics/FigureFamilies.h"
#include "metrics/MachineFamilies.h"

#include <algorithm>
#include <optional>
#include <string_view>
#include <utility>

namespace meridal {

namespace {

constexpr const char* onlyColumn = "value"; ///< of series that have one figure

/// An entry of history.series.
struct ListedSeries {
    std::string series;
    std::string collector;
    std::string key;
    std::string name;
    std::string origin;
    std::string unit;
    std::string column; ///< the first

    explicit ListedSeries(const Value& entry)
        : series(text(entry, "series").value_or(""))
        , collector(text(entry, "collector").value_or(""))
        , key(text(entry, "key").value_or(""))
        , name(text(entry, "name").value_or(""))
        , origin(text(entry, "origin").value_or(""))
        , unit(text(entry, "unit").value_or(""))
        , column(onlyColumn)
    {
        const Value* columns = find(entry, "values");
        if (columns && columns->is_array() && !columns->empty() && columns->front().is_string()) {
            column = columns->front().get<std::string>();
        }
    }
};

class FamilyList {
public:
    FamilyList(const Value& series, const MetricsSnapshot& now) : now_(now)
    {
        for (const Value& entry : series.is_array() ? series : Value::array()) {
            listed_.emplace_back(entry);
        }
    }

    void addSensors()
    {
        for (const SensorFamily& family : sensorFamilies) {
            begin(family.family);
            forEach("sensors", [&](const ListedSeries& each) {
                if (each.unit == family.unit) {
                    add(each, each.column, sensorLabels(each), family.divisor);
                }
            });
        }
    }

    void addDisks()
    {
        const auto addAll = [this](const char* collector, const MetricFamily& family, double divisor) {
            begin(family);
            forEach(collector, [&](const ListedSeries& each) {
                add(each, each.column, MetricsWriter::labelText({{"disk", each.key}}), divisor);
            });
        };
        addAll("disks", diskCelsiusFamily, 1);
        addAll("wear", diskLifeFamily, fromPercent);
    }

    void addBatteries()
    {
        addBattery("charge", batteryChargeFamily, fromPercent);
        addBattery("power", batteryWattsFamily, 1);
    }

    void addPressure()
    {
        begin(pressureFamily);
        forEach("pressure", [&](const ListedSeries& each) {
            for (const PressureFigure& figure : pressureFigures) {
                add(each, figure.entry,
                    MetricsWriter::labelText({{"resource", figure.resource}, {"kind", figure.kind}}), fromPercent);
            }
        });
    }

    void addMachine()
    {
        for (const MachineFigure& figure : machineFigures) {
            if (families_.empty() || families_.back().family.name != figure.family.name) {
                begin(figure.family);
            }
            forEach(figure.collector, [&](const ListedSeries& each) {
                add(each, figure.column.empty() ? figure.entry : figure.column,
                    MetricsWriter::labelText({{deviceLabel(figure.part), each.key}, {figure.label, figure.value}}),
                    figure.divisor);
            });
        }
    }

    std::vector<RecordedFamily> take() { return std::move(families_); }

private:
    template <typename Use>
    void forEach(std::string_view collector, const Use& use) const
    {
        for (const ListedSeries& each : listed_) {
            if (!collector.empty() && each.collector == collector) {
                use(each);
            }
        }
    }

    void begin(const MetricFamily& family) { families_.push_back({.family = family, .figures = {}}); }

    void add(const ListedSeries& series, std::string_view column, std::string labels, double divisor)
    {
        families_.back().figures.push_back(
            {.series = series.series, .column = std::string(column), .labels = std::move(labels), .divisor = divisor});
    }

    /// Of a sensor that is there as it is called now: the record calls the chip of a disk by the disk.
    std::string sensorLabels(const ListedSeries& each) const
    {
        std::string chip = each.origin;
        std::string name = each.name;
        for (const Value& sensor : now_.sensors.is_array() ? now_.sensors : Value::array()) {
            if (text(sensor, "key") == each.key) {
                chip = text(sensor, "chip").value_or(chip);
                name = text(sensor, "name").value_or(name);
            }
        }
        return MetricsWriter::labelText({{"chip", chip}, {"sensor", each.key}, {"label", name}});
    }

    /// "charge" is the machine's battery, or what several of them come to, which then have series of their own.
    void addBattery(const std::string& figure, const MetricFamily& family, double divisor)
    {
        begin(family);
        const std::string ofOne = figure + "/";
        const bool areSeveral = std::any_of(listed_.begin(), listed_.end(),
            [&](const ListedSeries& each) { return each.collector == "battery" && each.key.starts_with(ofOne); });
        forEach("battery", [&](const ListedSeries& each) {
            if (areSeveral ? each.key.starts_with(ofOne) : each.key == figure) {
                const std::string key =
                    areSeveral ? each.key.substr(ofOne.size()) : text(now_.battery, "primary").value_or("");
                add(each, each.column, MetricsWriter::labelText({{"battery", key}}), divisor);
            }
        });
    }

    const MetricsSnapshot& now_;
    std::vector<ListedSeries> listed_;
    std::vector<RecordedFamily> families_;
};

} // namespace

std::vector<RecordedFamily> recordedFamilies(const Value& series, const MetricsSnapshot& now, bool all)
{
    FamilyList list(series, now);
    list.addSensors();
    list.addDisks();
    list.addBatteries();
    list.addPressure();
    if (all) {
        list.addMachine();
    }
    return list.take();
}

} // namespace meridal
