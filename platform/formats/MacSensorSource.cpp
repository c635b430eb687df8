// SPDX-License-Identifier: Apache-2.0
#include "platform/formats/MacSensorSource.h"

#include "base/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <utility>

namespace meridal {

namespace {

/// A fan's keys hold its number as one hexadecimal digit.
constexpr std::size_t mostFans = 16;

/// How often the event system is waited for before the SMC is taken to be alone.
constexpr int mostLateLooks = 10;

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

/// Of the whole machine, from the mains, of the processor package, its cores and its graphics, of graphics cards and of the
/// battery, as far as a machine has them.
constexpr std::array powerKeys = {"PSTR", "PDTR", "PCPT", "PCPC", "PCPG", "PG0R", "PG1R", "PPBR"};

/// What keys read whose sensor is not fitted lies outside, °C.
constexpr float coldest = 0;
constexpr float hottest = 130;

/// What a key of a type with a fraction reads; absent for counters, flags and settings.
std::optional<float> fractionOf(SensorSMCController& smc, SMCOrigin origin, const std::string& key)
{
    SMCKeyValue data;
    smc.dataForKey(key, data);
    const std::string_view type(data.dataType.data(), 4);
    const bool isFraction = type.starts_with("sp") || type.starts_with("fp") || type == "flt ";
    const float value = isFraction ? convertSMCData(data, origin) : 0;
    return isFraction && !smc.lastReadFailed() && std::isfinite(value) ? std::optional(value) : std::nullopt;
}

bool looksLikeSensor(SensorSMCController& smc, SMCOrigin origin, const std::string& key)
{
    constexpr std::string_view letters = "TVIP";
    if (key.empty() || letters.find(key.front()) == std::string_view::npos) {
        return false;
    }
    const auto value = fractionOf(smc, origin, key);
    return value && *value != 0 && (key.front() != 'T' || (*value > coldest && *value < hottest));
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
    openSMC();
    if (records_.empty() || (smc_.connection() != 0 && !hasLookedAtSMC_)) {
        const std::vector<ARMSensor> services = arm_.sensors();
        // Without an answer there is no telling whether the SMC is alone. One that never comes is not waited for.
        if (!services_->isLate() || ++lateLooks_ > mostLateLooks) {
            look(services);
        }
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
    openSMC();
    if (smc_.connection() != 0 && (before == 0 || !hasLookedAtSMC_)) {
        addKeys(records_.empty());
        hasLookedAtSMC_ = addFans();
    }
    generation_ += records_.size() != before ? 1U : 0U;
}

/// One that was not there is looked for again when its driver has come: asking for it costs a walk through the registry.
void MacSensorSource::openSMC()
{
    if (smc_.connection() == 0 && (driver_->hasCome() || isRefused_)) {
        isRefused_ = smc_.open() == IOStatus::Error;
    }
}

/// Alone, it is searched for sensors. Services tell of no power, and to search beside them would list temperatures twice.
void MacSensorSource::addKeys(bool isAlone)
{
    if (origin_ != SMCOrigin::Own) {
        return;
    }
    std::vector<std::string> found;
    if (isAlone) {
        found = sensorKeysByLooks(smc_, origin_);
    } else {
        std::copy_if(powerKeys.begin(), powerKeys.end(), std::back_inserter(found),
            [&](const char* key) { return fractionOf(smc_, origin_, key).has_value(); }); // 0 on the battery, for one
    }
    for (const std::string& key : found) {
        if (!withKey(records_, key)) {
            records_.push_back(recordOf(key, key, kindOfLetter(key.front())));
        }
    }
}

/// Whether it is known by now how many there are: an SMC that is busy is asked again.
bool MacSensorSource::addFans()
{
    const SensorReading number = readKey("FNum");
    if (smc_.lastKeyIsUnknown() || (number.isThere && !number.value && smc_.lastReadFailed())) {
        return false;
    }
    const double count = number.value.value_or(0);
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
        if (!record.label.empty() && !withKey(records_, record.key)) {
            records_.push_back(std::move(record));
        }
    }
    return true;
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
    openSMC();
    std::optional<std::vector<ARMSensor>> services; // enumerated once for all
    std::vector<SensorReading> readings;
    for (const std::string& key : keys) {
        if (!key.starts_with(servicePrefix)) {
            readings.push_back(readKey(key));
            continue;
        }
        if (!services) {
            services = arm_.sensors();
            if (!services_->isLate()) {
                look(*services);
            }
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
