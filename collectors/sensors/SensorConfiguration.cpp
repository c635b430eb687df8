// SPDX-License-Identifier: Apache-2.0
#include "collectors/sensors/SensorConfiguration.h"

#include "base/Value.h"
#include "collectors/sensors/SensorKind.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace meridal {

namespace {

std::optional<std::vector<std::string>> keyList(const Value& configuration, const char* entry)
{
    const Value* list = find(configuration, entry);
    if (!list || !list->is_array() || list->size() > mostConfiguredKeys) {
        return std::nullopt;
    }
    std::vector<std::string> keys;
    for (const Value& key : *list) {
        const auto* word = key.get_ptr<const std::string*>();
        keys.push_back(word && isSMCKey(*word) ? *word : std::string());
    }
    return keys;
}

std::optional<std::int64_t> kindEntry(const Value& configuration)
{
    const auto figure = number(configuration, "type");
    if (!figure || *figure < 0 || *figure > std::numeric_limits<std::int32_t>::max()) {
        return std::nullopt;
    }
    return static_cast<std::int64_t>(*figure);
}

std::string joined(char prefix, const std::vector<std::string>& keys)
{
    std::string text(1, prefix);
    for (const std::string& key : keys) {
        text += '|';
        text += key;
    }
    return text;
}

} // namespace

std::int64_t SensorConfiguration::kind() const
{
    return type ? *type : isWatts ? sensorKind::power : sensorKindOfKey(key);
}

std::string SensorConfiguration::identity() const
{
    return isProduct() ? joined('*', *multiply) : average ? joined('+', *average) : "=" + key;
}

SensorConfiguration parseSensorConfiguration(const Value& configuration)
{
    return {.key = text(configuration, "key").value_or(""),
        .name = text(configuration, "name").value_or(""),
        .type = kindEntry(configuration),
        .isWatts = text(configuration, "type") == "watts",
        .low = number(configuration, "low").value_or(0),
        .high = number(configuration, "high").value_or(0),
        .multiply = keyList(configuration, "multiply"),
        .average = keyList(configuration, "average")};
}

double finite(double value) { return std::isfinite(value) ? value : 0; }

bool isSMCKey(const std::string& key)
{
    // Characters, not bytes: every byte of UTF-8 but those that continue a character begins one.
    return key.size() <= 16 && std::count_if(key.begin(), key.end(), [](char byte) {
        return (static_cast<unsigned char>(byte) & 0xC0U) != 0x80U;
    }) == 4;
}

} // namespace meridal
