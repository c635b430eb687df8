// SPDX-License-Identifier: Apache-2.0
// The part of SensorsStatCollectorMac that keeps the record: which series there are, and the extremes ever seen.

#include "base/Runtime.h"
#include "collectors/sensors/SensorKind.h"
#include "collectors/sensors/SensorLimits.h"
#include "collectors/sensors/SensorsStatCollectorMac.h"
#include "database/HistoryDatabaseController.h"
#include "database/SeriesNames.h"
#include "platform/Context.h"

#include <utility>

namespace meridal {

// History

HistorySeries SensorsStatCollectorMac::seriesOf(const Item& item) const
{
    const SensorRecord* record = recordForKey(item.key().value_or(""));
    return {.key = item.key().value_or(""),
        .name = nameOf(item),
        .unit = std::string(sensorUnit(kindOf(item))),
        .values = {"value"},
        .step = isPower(item) ? powerStep : 0,
        .origin = !record          ? ""
            : record->disk.empty() ? record->chip
                                   : record->disk};
}

std::vector<HistorySeries> SensorsStatCollectorMac::series() const
{
    std::vector<HistorySeries> all;
    for (const auto& item : sensors()) {
        all.push_back(seriesOf(*item));
    }
    recorded_.addAbsent(all);
    return all;
}

// Extremes

void SensorsStatCollectorMac::prepareDatabase()
{
    if (preparedDatabase_) {
        return;
    }
    if (const auto file = database()) {
        preparedDatabase_ = true;
        file->declareTable(recordedSeriesTable());
        file->declareTable(sensorLimitsTable());
        file->declareTable(keptSensorsTable());
        history().declareTables(HistoryFile::Short); // extremes without a row are made from them
    }
}

/// The file of the record, which is made when it is not there; null without one.
std::shared_ptr<HistoryDatabaseItem> SensorsStatCollectorMac::database()
{
    return history().databaseForIndex(StorageIndex::Hour);
}

void SensorsStatCollectorMac::loadSeenLimits(std::vector<std::string> keys)
{
    if (keys.empty()) {
        return;
    }
    prepareDatabase();
    const auto file = database();
    if (!file) {
        return;
    }
    auto adopt =
        sensorLifetime_.guard([this](const auto& names, const auto& limits) { takeSeenLimits(names, limits); });
    Queue& mainQueue = context().runtime.mainQueue();
    file->queryDatabaseAsync([keys = std::move(keys), adopt, &mainQueue](SQLiteConnection& connection) {
        mainQueue.post([adopt, keys, limits = readSensorLimits(connection, keys)]() mutable { adopt(keys, limits); });
    });
}

void SensorsStatCollectorMac::takeSeenLimits(
    const std::vector<std::string>& keys, const std::vector<std::optional<SeenLimits>>& limits)
{
    for (std::size_t index = 0; index < keys.size() && index < limits.size(); ++index) {
        if (const auto sensor = sensorWithKey(keys[index]); sensor && limits[index]) {
            sensor->takeStoredLimits(*limits[index]);
        }
    }
}

void SensorsStatCollectorMac::updateRecordedValues()
{
    if (!history().isRecording()) {
        return;
    }
    for (const auto& item : sensors()) {
        const auto file = item->hasSeenLimits() && item->knowsStoredLimits() ? database() : nullptr;
        if (file && item->recordedValueChanged()) {
            item->setRecordedValueChanged(false);
            file->addItem({.table = sensorLimitsTable().table,
                .format = updateSensorLimits,
                .args = {item->lowestRecordedValue(), item->highestRecordedValue(), item->key().value_or("")}});
        }
        if (file && item->hasRecorded()) {
            recorded_.note(history().databases(), seriesOf(*item)); // and with it that the extremes were measured
        }
    }
}

void SensorsStatCollectorMac::prepareCommit()
{
    updateRecordedValues();           // so that they share the transaction of the rows
    std::vector<std::string> unknown; // the file could not be read, or not be written, when they were new
    for (const auto& item : sensors()) {
        if (!item->knowsStoredLimits()) {
            unknown.push_back(item->key().value_or(""));
        }
    }
    loadSeenLimits(std::move(unknown));
}

void SensorsStatCollectorMac::cleanup()
{
    sensorLifetime_.end();
    rests_ = false;
    updateRecordedValues();
    StatCollector::cleanup();
}

} // namespace meridal
