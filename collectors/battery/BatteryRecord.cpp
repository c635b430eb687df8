// SPDX-License-Identifier: Apache-2.0
#include "collectors/battery/BatteryRecord.h"

#include "base/Runtime.h"
#include "history/SampleStorages.h"
#include "platform/Context.h"

#include <array>
#include <filesystem>
#include <system_error>
#include <utility>

namespace meridal {

namespace {

constexpr const char* recordName = "battery";
constexpr const char* valueColumn = "value";
constexpr double powerStep = 0.1; // W; as with power sensors

} // namespace

BatteryRecord::BatteryRecord(Context& context)
    : context_(context)
    , history_(context,
          {.description = "battery record",
              .columns = {valueColumn},
              .dbTablePrefix = recordName,
              .dbpath = context.paths.support / "battery-history.db",
              .dbpathLong = context.paths.support / "battery-history-long.db"})
    , recorded_(context.runtime, recordName, {valueColumn})
{
}

void BatteryRecord::load()
{
    std::error_code failure;
    const auto file = std::filesystem::exists(history_.traits().dbpath, failure)
        ? history_.databaseForIndex(StorageIndex::Hour)
        : nullptr;
    if (file) {
        recorded_.load(*file);
    }
}

void BatteryRecord::begin()
{
    for (auto& entry : held_) {
        entry.second.value.reset();
    }
}

void BatteryRecord::note(const std::string& key, const std::string& name, const BatteryLevel& level)
{
    const std::string suffix = key.empty() ? "" : "/" + key;
    hold({.key = "charge" + suffix, .name = name + " charge", .unit = "%", .values = {valueColumn}}, level.charge);
    hold({.key = "power" + suffix, .name = name + " power", .unit = "W", .values = {valueColumn}, .step = powerStep},
        level.power);
}

void BatteryRecord::hold(HistorySeries series, std::optional<double> value)
{
    if (value) {
        held_[series.key].value = value;
        held_[series.key].series = std::move(series);
    }
}

void BatteryRecord::tick()
{
    const double now = context_.runtime.wallTime();
    std::erase_if(held_, [](const auto& entry) { return !entry.second.value; }); // gone, or silent about it
    for (auto& [key, held] : held_) {
        if (!held.samples) {
            held.samples = history_.item(key);
        }
        recorded_.note(history_.databases(), held.series);
        held.samples->addSample(now, std::array{held.value});
    }
    history_.updateHistory();
}

void BatteryRecord::addTo(HistoryCatalogue& catalogue)
{
    const auto describe = [this] {
        std::vector<HistorySeries> series;
        for (const auto& entry : held_) {
            series.push_back(entry.second.series);
        }
        recorded_.addAbsent(series);
        return series;
    };
    catalogue.add(recordName, history_, describe, &recorded_);
}

} // namespace meridal
