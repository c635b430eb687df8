#include "collectors/sensors/SensorsStatCollector.h"

#include "collectors/sensors/SensorStatCollectorItem.h"
#include "platform/Context.h"

namespace meridal {

SensorsStatCollector::SensorsStatCollector(Context& context)
    : StatCollector(context,
        {.description = "SensorsStatCollector",
            .sampleCount = SensorStatCollectorItem::sampleCount(),
            .storageType = StorageType::Items,
            .layout = StorageLayout::forHistory()})
{
    config() = {{"addSampleMap", {{"value", 0}}}, {"addSampleIDKeys", {"sample"}}, {"sampleKeys", {{"value", 0}}},
        {"emptySampleKeys", {"value"}}, {"sqlCreateID", "create table %@ (sample integer primary key, time double)"},
        {"sqlInsert", "insert into %@ (sample, time) values (?, ?)"}, {"sqlInsertKeys", {"sample", "time"}},
        {"sqlCreate",
            "create table %@ (sample integer, uuid varchar(100), time double, value double, "
            "primary key (sample, uuid)) without rowid"},
        {"sqlInsertItem", "insert into %@ (sample, uuid, time, value) values (?, ?, ?, ?)"},
        {"sqlInsertItemKeys", {"sample", "uuid", "time", "value"}}};
    setDbTablePrefix("sensor");
    setDbpath((context.paths.support / databaseName).string());
    setDbpathLong((context.paths.support / "sensors-long.db").string());
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
