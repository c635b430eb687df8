// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collectors/sensors/SensorStatCollectorItem.h"

#include <optional>
#include <string>
#include <vector>

namespace meridal {

class SQLiteConnection;
struct TableSchema;

/// The table of the extremes that sensors ever had.
const TableSchema& sensorLimitsTable();

/// The statement that brings a sensor's row up to date; arguments low, high, key.
constexpr const char* updateSensorLimits = "UPDATE %@ SET low = ?, high = ? WHERE uuid = ?";

/// The statement that removes the row of a sensor that never had a value; argument key.
constexpr const char* removeEmptySensorLimits = "delete from %@ where uuid = ? and low = 0 and high = 0";

/// What earlier runs saw of a sensor; absent when the file cannot be read, or a row not be added, now. A sensor without a
/// row gets one, with the highest value of the history tables. Runs on the database's queue.
///
/// The table cannot tell 0 and -1 from "not seen yet": for sensors among the recorded series they are measured values,
/// unless their row had to be made: it has a low above its high until something is measured.
std::optional<SeenLimits> readSensorLimits(SQLiteConnection& database, const std::string& key);

/// The same for many, in one transaction, in their order.
std::vector<std::optional<SeenLimits>> readSensorLimits(
    SQLiteConnection& database, const std::vector<std::string>& keys);

} // namespace meridal
