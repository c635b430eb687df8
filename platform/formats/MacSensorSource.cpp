// SPDX-License-Identifier: Apache-2.0
#include "platform/formats/MacSensorSource.h"

#include "base/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace meridal {

namespace {

/// A fan's keys hold its number as one hexadecimal digit.
constexpr std::size_t mostFans = 16;

/// So that no service's name passes for a key of the SMC.
constexpr std::string_view servicePrefix = "HID/";

SensorRecord recordOf(const ARMSensor& service)
{
    return {.key = std::string(servicePrefix) + service.key,
        .chip = "HID",
        .channel = service.key,
        .label = service.average ? std::string(service.average->label) : service.key,
        .kind = SensorKind::Temperature,
        .isNameless = true,
        .isMean = service.average != nullptr};
}

SensorRecord recordOf(const std::string& key, std::string label, SensorKind kind)
{
    return {.key = key, .chip = "SMC", .channel = key, .label = std::move(label), .kind = kind, .isNameless = true};
}

SensorKind kindOfLetter(char letter)
{
    return letter == 'V' ? SensorKind::Voltage
        : letter == 'I'  ? SensorKind::Current
        : letter == 'P'  ? SensorKind::Power
                         : SensorKind::Temperature;
}

/// Macs have a thousand or two, of which some hundred are sensors.
constexpr std::size_t mostKeys = 4096;
constexpr std::size_t mostSensors = 512;

/// What keys read whose sensor is not fitted lies outside, °C.
constexpr float coldest = 0;
constexpr float hottest = 130;

bool looksLikeSensor(SensorSMCController& smc, SMCOrigin origin, const std::string& key)
{
    constexpr std::string_view letters = "TVIP";
    if (key.empty() || letters.find(key.front()) == std::string_view::npos) {
        return false;
    }
    SMCKeyValue data;
    smc.dataForKey(key, data);
    const std::string_view type(data.dataType.data(), 4);
    if (!type.starts_with("sp") && !type.starts_with("fp") && type != "flt ") {
        return false; // counters, flags and settings
    }
    const float value = convertSMCData(data, origin);
    if (smc.lastReadFailed() || !std::isfinite(value) || value == 0) {
        return false;
    }
    return key.front() != 'T' || (value > coldest && value < hottest);
}

/// The keys of an SMC that are sensors by their looks: the first letter of temperatures, voltages, currents or powers, a
/// type with a fraction, and a reading other than 0. Asks for every key there is, which takes a moment.
std::vector<std::string> sensorKeysByLooks(SensorSMCController& smc, SMCOrigin origin)
{
    std::vector<std::string> sensors;
    for (std::string& key : smc.keys(mostKeys)) {
        if (sensors.size() < mostSensors && looksLikeSensor(smc, origin, key)) {
            sensors.push_back(std::move(key));
        }
    }
    return sensors;
}

const SensorRecord* withKey(const std::vector<SensorRecord>& records, const std::string& key)
{
    const auto found = std::find_if(records.begin(), records.end(), [&](const auto& each) { return each.key == key; });
    return found != records.end() ? &*found : nullptr;
}

} // namespace

MacSensorSource::MacSensorSource(
    std::unique_ptr<SMCService> driver, std::unique_ptr<SensorServices> services, SMCOrigin origin)
    : driver_(std::move(driver)), services_(std::move(services)), origin_(origin), smc_(*driver_), arm_(*services_)
{
}

MacSensorSource::~MacSensorSource() { smc_.close(); }

std::uint64_t MacSensorSource::generation()
{
    if (records_.empty()) {
        look(arm_.sensors());
    }
    return generation_;
}

std::vector<SensorRecord> MacSensorSource::sensors()
{
    generation();
    return records_;
}

/// What is known stays: a service may be without an event for a moment. What is new is added.
void MacSensorSource::look(const std::vector<ARMSensor>& services)
{
    const std::size_t before = records_.size();
    for (const ARMSensor& service : services) {
        SensorRecord record = recordOf(service);
        if (service.value && !service.key.empty() && !withKey(records_, record.key)) {
            records_.push_back(std::move(record));
        }
    }
    if (before == 0) {
        smc_.openIfNeeded();
        if (records_.empty() && origin_ == SMCOrigin::Own) {
            for (std::string& key : sensorKeysByLooks(smc_, origin_)) {
                records_.push_back(recordOf(key, key, kindOfLetter(key.front())));
            }
        }
        addFans();
    }
    generation_ += records_.size() != before ? 1U : 0U;
}

void MacSensorSource::addFans()
{
    const double count = readKey("FNum").value.value_or(0);
    for (std::size_t fan = 0; fan < mostFans && static_cast<double>(fan) < count; ++fan) {
        const std::string prefix = fmt::format("F{:X}", fan);
        SensorRecord record = recordOf(prefix + "Ac", fmt::format("Fan {}", fan + 1), SensorKind::Fan);
        if (origin_ == SMCOrigin::Emulated) {
            record.label = fanNameFromID(prefix);
            record.limits.low = readKey(prefix + "Mn").value;
            record.limits.high = readKey(prefix + "Mx").value;
            record.mayStandStill = true;
            record.isNameless = false;
        }
        if (!record.label.empty()) {
            records_.push_back(std::move(record));
        }
    }
}

/// An emulated SMC keeps a fan's name among its bytes.
std::string MacSensorSource::fanNameFromID(const std::string& prefix)
{
    SMCKeyValue data;
    smc_.dataForKey(prefix + "ID", data);
    std::string name;
    for (std::size_t index = 0; index < data.bytes.size() && index < data.dataSize; ++index) {
        if (data.bytes[index] >= 33) {
            name += static_cast<char>(data.bytes[index]);
        }
    }
    return validUtf8(name);
}

SensorReading MacSensorSource::readKey(const std::string& key)
{
    SMCKeyValue data;
    if (smc_.connection() != 0) { // or every key would be remembered as one that is not there
        smc_.dataForKey(key, data);
    }
    if (data.dataType[0] == '\0') {
        return {};
    }
    const double value = smcDecimal(data, origin_);
    const bool isMeasured = !smc_.lastReadFailed() && std::isfinite(value);
    return {.isThere = true, .value = isMeasured ? std::optional(value) : std::nullopt};
}

std::vector<SensorReading> MacSensorSource::read(std::span<const std::string> keys)
{
    smc_.openIfNeeded();
    std::optional<std::vector<ARMSensor>> services; // enumerated once for all
    std::vector<SensorReading> readings;
    for (const std::string& key : keys) {
        if (!key.starts_with(servicePrefix)) {
            readings.push_back(readKey(key));
            continue;
        }
        if (!services) {
            services = arm_.sensors();
            look(*services);
        }
        const auto found = std::find_if(services->begin(), services->end(), [&](const ARMSensor& service) {
            return std::string_view(key).substr(servicePrefix.size()) == service.key;
        });
        readings.push_back({.isThere = withKey(records_, key) != nullptr,
            .value = found != services->end() ? found->value : std::nullopt});
    }
    return readings;
}

} // namespace meridal
