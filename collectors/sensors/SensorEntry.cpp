// SPDX-License-Identifier: Apache-2.0
#include "collectors/sensors/SensorEntry.h"

#include "base/Value.h"
#include "collectors/sensors/SensorConfiguration.h"
#include "collectors/sensors/SensorStatCollectorItem.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <unordered_set>
#include <utility>

namespace meridal {

const Value& sensorList(const Value& configurations)
{
    static const Value none = Value::array();
    return configurations.is_array() ? configurations : none;
}

Value configuredEntries(const Value& entries, const Value& configurations)
{
    std::unordered_set<std::string> keys;
    for (const Value& configuration : sensorList(configurations)) {
        if (auto key = text(configuration, "key")) {
            keys.insert(std::move(*key));
        }
    }
    Value configured = Value::array();
    std::copy_if(entries.begin(), entries.end(), std::back_inserter(configured),
        [&](const Value& entry) { return keys.contains(text(entry, "key").value_or("")); });
    return configured;
}

std::string shortenedText(const std::string& name, std::size_t longest)
{
    if (name.size() <= longest) {
        return name;
    }
    std::size_t end = longest;
    while (end > 0 && (static_cast<unsigned char>(name[end]) & 0xC0U) == 0x80U) {
        --end; // not in the midst of a character
    }
    return name.substr(0, end);
}

bool makesTooManyKeys(const Value& entry)
{
    const Value* given = find(entry, "config");
    const SensorConfiguration configuration = parseSensorConfiguration(given ? *given : Value());
    return (configuration.multiply && configuration.multiply->size() > mostSampledKeys)
        || (configuration.average && configuration.average->size() > mostSampledKeys);
}

void takeSensorEntry(SensorStatCollectorItem& item, const Value& entry, std::int64_t index)
{
    const Value* given = find(entry, "config");
    SensorConfiguration configuration = parseSensorConfiguration(given ? *given : Value());
    configuration.key = item.key().value_or("");
    configuration.name = shortenedText(text(entry, "name").value_or(configuration.name), longestSensorName);
    item.setName(configuration.name);
    item.setType(integer(entry, "type").value_or(configuration.kind()));
    item.setIndex(index);
    const auto high = number(entry, "high");
    item.setHasFixedLimits(high && *high > 0);
    if (item.hasFixedLimits()) {
        item.setHigh(*high);
        item.setLow(number(entry, "low").value_or(0));
    }
    item.setSensorConfig(std::move(configuration));
    item.updateLimits();
    item.updatePercentage();
}

} // namespace meridal
