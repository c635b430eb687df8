// SPDX-License-Identifier: Apache-2.0
#include "collectors/sensors/SensorsStatCollector.h"

#include "collectors/sensors/SensorStatCollectorItem.h"
#include "platform/Context.h"

namespace meridal {

SensorsStatCollector::SensorsStatCollector(Context& context)
    : StatCollector(context, "SensorsStatCollector")
    , history_(context,
          {.description = description(),
              .columns = {"value"},
              .storageType = StorageType::Items,
              .dbTablePrefix = "sensor",
              .dbpath = context.paths.support / databaseName,
              .dbpathLong = context.paths.support / "sensors-long.db",
              .types = {.figure = "double", .key = "varchar(100)"}})
{
}

std::shared_ptr<StatCollectorItem> SensorsStatCollector::makeItem()
{
    return std::make_shared<SensorStatCollectorItem>(context());
}

std::shared_ptr<SensorStatCollectorItem> SensorsStatCollector::sensorWithKey(std::string_view key)
{
    return std::dynamic_pointer_cast<SensorStatCollectorItem>(itemWithKey(key));
}

} // namespace meridal
