// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/SensorSource.h"

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace meridal::test {

/// A sensor as a host that names its sensors tells it.
inline SensorRecord sensorOf(std::string key, std::string chip, std::string label,
    SensorKind kind = SensorKind::Temperature, SensorLimits limits = {})
{
    return {.key = std::move(key),
        .chip = std::move(chip),
        .channel = "channel1",
        .label = std::move(label),
        .kind = kind,
        .limits = limits};
}

/// One as a Mac tells it: a service by its name after "HID/", or a key of the SMC.
inline SensorRecord namelessSensor(
    const std::string& key, std::string label = {}, SensorKind kind = SensorKind::Temperature)
{
    const std::string channel = key.substr(key.find('/') + 1);
    return {.key = key,
        .chip = channel == key ? "SMC" : "HID",
        .channel = channel,
        .label = label.empty() ? channel : std::move(label),
        .kind = kind,
        .isNameless = true,
        .isMean = channel.starts_with("AS_")};
}

/// Sensors of a test's making: those that the host tells, and keys that can be read without being told.
class FakeSensorSource final : public SensorSource {
public:
    std::uint64_t generation() override { return number; }
    std::vector<SensorRecord> sensors() override { return records; }
    std::vector<SensorReading> read(std::span<const std::string> keys) override
    {
        std::vector<SensorReading> readings;
        for (const std::string& key : keys) {
            ++reads[key];
            ++total;
            const auto entry = values.find(key);
            const bool isThere = entry != values.end();
            const auto failure = failures.find(key);
            readings.push_back({.isThere = isThere,
                .value = isThere ? entry->second : std::nullopt,
                .failure = failure != failures.end() ? failure->second : std::string()});
        }
        return readings;
    }
    std::map<std::string, SensorFlags> flags() override { return raised; }
    /// Replaces what the host tells.
    void change(std::vector<SensorRecord> now)
    {
        records = std::move(now);
        ++number;
    }

    std::vector<SensorRecord> records;
    std::map<std::string, std::optional<double>> values; ///< by key; without a value: it cannot be had
    std::map<std::string, std::string> failures;         ///< of the reading, by key
    std::map<std::string, SensorFlags> raised;
    std::map<std::string, std::ptrdiff_t> reads; ///< how often each was asked for
    std::ptrdiff_t total = 0;
    std::uint64_t number = 1;
};

} // namespace meridal::test
