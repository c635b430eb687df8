// SPDX-License-Identifier: Apache-2.0
#include "platform/formats/MacSensorSource.h"

#include "base/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

namespace meridal {

namespace {

/// A fan's keys hold its number as one hexadecimal digit.
constexpr std::size_t mostFans = 16;

/// How often the event system is waited for before the SMC is taken to be alone.
constexpr int mostLateLooks = 10;

/// How often an SMC is looked at that refuses, or that leaves something without an answer.
constexpr int mostSMCLooks = 30;

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

struct KnownKey {
    std::string_view key;
    const char* label;
};

/// What the event system does not tell of and an SMC does, as far as the machine has it. What they stand for on Apple silicon is
/// published with the Linux kernel's descriptions of these machines (hwmon-common.dtsi, hwmon-laptop.dtsi); those without a
/// label are powers of an Intel Mac's processor package, its cores, its graphics, graphics cards and the battery.
constexpr std::array<KnownKey, 15> knownKeys = {{{"PSTR", "Whole machine"}, {"PDTR", "Mains"}, {"PMVR", "3.8 V rail"},
    {"PHPC", "Heat pipe"}, {"VD0R", "Mains"}, {"ID0R", "Mains"}, {"TH0x", "Flash storage"},
    {"TW0P", "Wi-Fi and Bluetooth"}, {"TCHP", "Charge regulator"}, {"PCPT", nullptr}, {"PCPC", nullptr},
    {"PCPG", nullptr}, {"PG0R", nullptr}, {"PG1R", nullptr}, {"PPBR", nullptr}}};

std::vector<std::string> namesOfKnownKeys()
{
    std::vector<std::string> names;
    for (const KnownKey& known : knownKeys) {
        names.emplace_back(known.key);
    }
    return names;
}

/// A key by what it stands for, else by itself.
std::string labelOf(const std::string& key)
{
    const auto* known =
        std::find_if(knownKeys.begin(), knownKeys.end(), [&key](const KnownKey& each) { return each.key == key; });
    return known != knownKeys.end() && known->label ? known->label : key;
}

/// What keys read whose sensor is not fitted lies outside, °C.
constexpr float coldest = 0;
constexpr float hottest = 130;

/// Whether the SMC or its driver failed at the latest read, so that nothing is known of the key or of what it reads.
bool isUnanswered(const SensorSMCController& smc, const SMCKeyValue& data)
{
    return smc.lastKeyIsUnknown() || (data.dataType[0] != '\0' && smc.lastReadFailed());
}

enum class Looks { Sensor, Other, Unanswered };

/// A key with a type that has a fraction, unlike counters, flags and settings. `byLooks`: also a first letter of temperatures,
/// voltages, currents or powers, and a reading other than 0. A temperature that cannot be is of no sensor in any case.
Looks looksOf(SensorSMCController& smc, const std::string& key, bool byLooks)
{
    constexpr std::string_view letters = "TVIP";
    if (key.empty() || letters.find(key.front()) == std::string_view::npos) {
        return Looks::Other;
    }
    SMCKeyValue data;
    smc.dataForKey(key, data);
    const std::string_view type(data.dataType.data(), 4);
    const bool isFraction = type.starts_with("sp") || type.starts_with("fp") || type == "flt ";
    if (isUnanswered(smc, data)) {
        return isFraction || smc.lastKeyIsUnknown() ? Looks::Unanswered : Looks::Other;
    }
    const float value = isFraction ? convertSMCData(data, SMCOrigin::Own) : 0;
    const bool isLikely = key.front() == 'T' ? value > coldest && value < hottest : value != 0 || !byLooks;
    return isFraction && std::isfinite(value) && isLikely ? Looks::Sensor : Looks::Other;
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
    if (smc_.connection() != 0 && smcLooks_ < mostSMCLooks && (before == 0 || !hasLookedAtSMC_)) {
        lookAtSMC();
    }
    generation_ += records_.size() != before ? 1U : 0U;
}

/// One that is busy is looked at again for what it did not answer, but one that never answers is not for ever.
void MacSensorSource::lookAtSMC()
{
    const bool areKeysKnown = addKeys();
    const bool areFansKnown = addFans();
    hasLookedAtSMC_ = ++smcLooks_ >= mostSMCLooks || (areKeysKnown && areFansKnown);
    if (records_.empty()) {
        searchedAlone_.reset();
    }
}

/// One that was not there is looked for again when its driver has come: asking for it costs a walk through the registry.
void MacSensorSource::openSMC()
{
    if (smc_.connection() != 0) {
        return;
    }
    if (driver_->hasCome()) {
        triesLeft_ = mostSMCLooks;
    }
    if (triesLeft_ > 0) {
        triesLeft_ = smc_.open() == IOStatus::Error ? triesLeft_ - 1 : 0;
    }
}

/// Alone, it is searched for sensors. Beside services that would list temperatures twice: there only known keys count. A
/// search asks for every key there is, which takes a moment. Whether it is known by now which there are.
bool MacSensorSource::addKeys()
{
    if (origin_ != SMCOrigin::Own) {
        return true;
    }
    const bool isAlone = std::none_of(
        records_.begin(), records_.end(), [](const auto& record) { return record.key.starts_with(servicePrefix); });
    if (searchedAlone_ != isAlone) {
        undecided_ = isAlone ? smc_.keys(mostKeys) : namesOfKnownKeys();
        searchedAlone_ = isAlone && smc_.lastKeyIsUnknown() ? std::nullopt : std::optional(isAlone);
    }
    for (const std::string& key : std::exchange(undecided_, {})) {
        const Looks looks =
            looksOf(smc_, key, isAlone); // power that is known by name may read 0: on the battery, for one
        if (looks == Looks::Unanswered) {
            undecided_.push_back(key);
        } else if (looks == Looks::Sensor && records_.size() < mostSensors && !withKey(records_, key)) {
            records_.push_back(recordOf(key, labelOf(key), kindOfLetter(key.front())));
        }
    }
    return searchedAlone_ && undecided_.empty();
}

/// Whether it is known by now how many there are.
bool MacSensorSource::addFans()
{
    SMCKeyValue number;
    smc_.dataForKey("FNum", number);
    if (isUnanswered(smc_, number)) {
        return false;
    }
    const double count = smcDecimal(number, origin_); // below 0 without the key
    bool areKnown = true;
    for (std::size_t fan = 0; fan < mostFans && std::isfinite(count) && static_cast<double>(fan) < count; ++fan) {
        areKnown = addFan(fan) && areKnown;
    }
    return areKnown;
}

bool MacSensorSource::addFan(std::size_t number)
{
    const std::string prefix = fmt::format("F{:X}", number);
    SensorRecord record = recordOf(prefix + "Ac", fmt::format("Fan {}", number + 1), SensorKind::Fan);
    if (withKey(records_, record.key)) {
        return true;
    }
    if (origin_ == SMCOrigin::Emulated) {
        const auto name = fanNameFromID(prefix);
        if (!name) {
            return false;
        }
        record.label = *name;
        record.limits.low = readKey(prefix + "Mn").value;
        record.limits.high = readKey(prefix + "Mx").value;
        record.mayStandStill = true;
        record.isNameless = false;
    }
    if (!record.label.empty()) {
        records_.push_back(std::move(record));
    }
    return true;
}

/// An emulated SMC keeps a fan's name among its bytes. Absent while it does not answer.
std::optional<std::string> MacSensorSource::fanNameFromID(const std::string& prefix)
{
    SMCKeyValue data;
    smc_.dataForKey(prefix + "ID", data);
    if (isUnanswered(smc_, data)) {
        return std::nullopt;
    }
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
