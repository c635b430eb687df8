// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"
#include "collectors/sensors/SensorConfiguration.h"

#include <cstddef>
#include <string>

namespace meridal {

class SQLiteConnection;
struct TableSchema;

/// By which request a client named a sensor: each has its own way to find out whether the sensor is there.
enum class SensorRequest : int { Sensors = 0, Fans = 1, Services = 2 };

/// Configurations that clients gave, an array for each request.
struct KeptSensors {
    Value sensors = Value::array();
    Value fans = Value::array();
    Value services = Value::array();
};

/// The table of the configurations that clients gave, so that the record of their sensors goes on after a restart. Which
/// client gave one is not kept: a sensor is the machine's.
const TableSchema& keptSensorsTable();

/// The statement that keeps a configuration; arguments key, SensorRequest, keptForm().
constexpr const char* keepSensor = "insert or replace into %@ (uuid, request, config) values (?, ?, ?)";

/// The statement that forgets one; argument key.
constexpr const char* forgetSensor = "delete from %@ where uuid = ?";

/// What of a configuration is kept: what was understood of it, as a client would give it, as JSON text.
std::string keptForm(const SensorConfiguration& configuration);

/// The newest configurations; older ones beyond that number are dropped. Runs on the database's queue.
KeptSensors readKeptSensors(SQLiteConnection& database, std::size_t most);

} // namespace meridal
