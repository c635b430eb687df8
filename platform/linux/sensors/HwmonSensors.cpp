// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/sensors/HwmonSensors.h"

#include "base/Runtime.h"
#include "base/Text.h"
#include "base/ThreadedSlowWork.h"

#include <system_error>
#include <utility>

namespace meridal {

namespace {

constexpr double patience = 0.1; // s that a figure is waited for

constexpr double lookInterval = 5.0;    // s, where chips are not announced: containers, recorded trees
constexpr double figureGoodFor = 0.2;   // s; one round of questions costs one reading
constexpr double limitGoodFor = 60.0;   // s
constexpr double flagGoodFor = 5.0;     // s
constexpr double restGoodFor = 300.0;   // s, of a disk that may want to rest
constexpr double waitAgainAfter = 60.0; // s

constexpr std::array limitFiles = {HwmonFile::Low, HwmonFile::High, HwmonFile::Critical, HwmonFile::LowCritical};

/// The files behind a chip's sensors, channel by channel in the order of HwmonFile, without those that are not there.
std::vector<HwmonReader::File> filesOf(const HwmonChip& chip)
{
    std::vector<HwmonReader::File> files;
    for (const HwmonChannel& channel : chip.channels) {
        for (std::size_t what = 0; what < hwmonFileCount; ++what) {
            const auto file = static_cast<HwmonFile>(what);
            if (!channel.files[what].empty()) {
                files.push_back({.name = channel.files[what],
                    .fault = file == HwmonFile::Input ? channel.fault : std::string(),
                    .units = isFlag(file) ? 1 : unitsOf(channel.kind)});
            }
        }
    }
    return files;
}

/// A divider's resistances are known to no more digits; what comes after them is the arithmetic's.
std::optional<double> computed(const SensorsExpression& formula, double figure)
{
    const auto result = formula.evaluate(figure);
    return result ? std::optional(toSevenDigits(*result)) : std::nullopt;
}

} // namespace

HwmonSensors::HwmonSensors(Runtime& runtime, HwmonOptions options)
    : runtime_(runtime)
    , root_(options.root)
    , work_(options.work ? std::move(options.work) : std::make_unique<ThreadedSlowWork>())
    , uevents_(std::make_unique<Uevents>(
          runtime, options.root, std::initializer_list<const char*>{"hwmon"}, [this] { announced_ = true; }))
{
}

std::uint64_t HwmonSensors::generation()
{
    look();
    if (runtime_.monotonicTime() >= limitsAgainAt_ && readLimits()) {
        ++generation_;
    }
    return generation_;
}

std::vector<SensorRecord> HwmonSensors::sensors()
{
    look();
    readLimits();
    std::vector<SensorRecord> records;
    for (const Sensor& sensor : sensors_) {
        records.push_back(sensor.record);
    }
    return records;
}

std::vector<SensorReading> HwmonSensors::read(std::span<const std::string> keys)
{
    look();
    std::vector<const Sensor*> asked;
    for (const std::string& key : keys) {
        const auto found = byKey_.find(key);
        asked.push_back(found != byKey_.end() ? &sensors_[found->second] : nullptr);
        if (asked.back()) {
            want(*asked.back(), HwmonFile::Input); // first all that is wanted: one reading a chip
        }
    }
    std::vector<SensorReading> readings;
    for (const Sensor* sensor : asked) {
        SensorReading reading{.isThere = sensor != nullptr};
        if (sensor) {
            reading.value = figure(*sensor, HwmonFile::Input);
            reading.failure = reading.value ? std::string() : failureOf(*sensor);
        }
        readings.push_back(std::move(reading));
    }
    return readings;
}

std::map<std::string, SensorFlags> HwmonSensors::flags()
{
    look();
    for (const Sensor& sensor : sensors_) {
        for (std::size_t what = 0; what < hwmonFileCount; ++what) {
            if (isFlag(static_cast<HwmonFile>(what))) {
                want(sensor, static_cast<HwmonFile>(what));
            }
        }
    }
    std::map<std::string, SensorFlags> raised;
    for (const Sensor& sensor : sensors_) {
        if (const SensorFlags flags = flagsOf(sensor); flags != SensorFlags()) {
            raised.emplace(sensor.record.key, flags);
        }
    }
    return raised;
}

// What there is

void HwmonSensors::look()
{
    const double now = runtime_.monotonicTime();
    if (!announced_ && now < nextLook_) {
        return;
    }
    nextLook_ = now + lookInterval;
    auto entries = hwmonEntries(root_);
    if (!announced_ && entries == entries_) {
        return;
    }
    announced_ = false;
    entries_ = std::move(entries);
    rebuild();
}

void HwmonSensors::rebuild()
{
    std::vector<Source> before = std::exchange(sources_, {});
    sensors_.clear();
    byKey_.clear();
    const SensorsConfig config = SensorsConfig::read(root_);
    for (HwmonChip& chip : readHwmonChips(root_)) {
        Source source{.chip = std::move(chip), .reader = nullptr};
        for (Source& known : before) { // files stay open over the arrival of another chip
            if (known.reader && known.chip == source.chip) {
                source.reader = std::exchange(known.reader, nullptr);
                source.notWaitedUntil = known.notWaitedUntil;
                break;
            }
        }
        if (!source.reader) {
            source.reader = std::make_shared<HwmonReader>(
                root_.path(source.chip.folder), filesOf(source.chip), root_.path(source.chip.device));
        }
        addSensors(source.chip, config, sources_.size());
        sources_.push_back(std::move(source));
    }
    ++generation_;
}

void HwmonSensors::addSensors(const HwmonChip& chip, const SensorsConfig& config, std::size_t source)
{
    std::size_t nextFile = 0; // in the order of filesOf()
    for (const HwmonChannel& channel : chip.channels) {
        Sensor sensor{.record = {.key = channel.ownKey.empty() ? chip.identity + "/" + channel.name : channel.ownKey,
                          .chip = chip.name,
                          .channel = channel.name,
                          .label = printable(config.label(chip.name, channel.name).value_or(channel.label)),
                          .kind = channel.kind,
                          .mayStandStill = !channel.ownKey.empty(),
                          .disturbs = chip.prefix == "drivetemp",
                          .isIgnored = config.isIgnored(chip.name, channel.name),
                          .disk = chip.disk},
            .formula = {},
            .source = source,
            .files = {}};
        for (std::size_t what = 0; what < hwmonFileCount; ++what) {
            sensor.files[what] = channel.files[what].empty() ? std::nullopt : std::optional(nextFile++);
        }
        if (chip.prefix == "coretemp") { // where its fans are to turn faster, which is all right
            sensor.files[static_cast<std::size_t>(HwmonFile::High)].reset();
        }
        sensor.record.tellsCritical = sensor.file(HwmonFile::CriticalAlarm).has_value();
        if (sensor.record.label.empty()) {
            sensor.record.label = channel.name;
        }
        if (const SensorsExpression* formula = config.formula(chip.name, channel.name)) {
            sensor.formula = *formula;
        }
        if (sensor.record.isIgnored) {
            sensor.files = {};
        }
        if (byKey_.emplace(sensor.record.key, sensors_.size()).second) {
            sensors_.push_back(std::move(sensor));
        }
    }
}

/// Whether any limit is another one than before.
bool HwmonSensors::readLimits()
{
    bool isChanged = false;
    bool isComplete = true;
    for (const Sensor& sensor : sensors_) {
        for (const HwmonFile which : limitFiles) {
            want(sensor, which);
        }
    }
    for (Sensor& sensor : sensors_) {
        const SensorLimits before = std::exchange(sensor.record.limits, limitsOf(sensor));
        isChanged = isChanged || before != sensor.record.limits;
        for (const HwmonFile which : limitFiles) {
            isComplete = isComplete && (!sensor.file(which) || figure(sensor, which));
        }
    }
    limitsAgainAt_ = isComplete ? std::numeric_limits<double>::infinity() : runtime_.monotonicTime() + limitGoodFor;
    return isChanged;
}

SensorLimits HwmonSensors::limitsOf(const Sensor& sensor)
{
    using enum HwmonFile;
    SensorLimits limits{.low = figure(sensor, Low),
        .high = figure(sensor, High),
        .critical = figure(sensor, Critical),
        .lowCritical = figure(sensor, LowCritical)};
    if (limits.low && limits.high && sensor.formula && *limits.low > *limits.high) {
        std::swap(limits.low, limits.high); // a divider that inverts
    }
    return limits;
}

SensorFlags HwmonSensors::flagsOf(const Sensor& sensor)
{
    const auto isSet = [&](HwmonFile which) { return figure(sensor, which).value_or(0) != 0; };
    using enum HwmonFile;
    const auto& input = sensor.file(Input);
    return {.any = isSet(Alarm),
        .low = isSet(LowAlarm),
        .high = isSet(HighAlarm) || isSet(CapAlarm),
        .critical = isSet(CriticalAlarm) || isSet(LowCriticalAlarm) || isSet(EmergencyAlarm),
        .fault = input && sources_[sensor.source].reader->isFaulty(*input, runtime_.monotonicTime())};
}

// What it says

double HwmonSensors::Sensor::goodFor(HwmonFile what) const
{
    if (what == HwmonFile::Input) {
        return record.disturbs ? restGoodFor : figureGoodFor;
    }
    return isFlag(what) ? flagGoodFor : limitGoodFor;
}

void HwmonSensors::want(const Sensor& sensor, HwmonFile which)
{
    if (const auto& file = sensor.file(which)) {
        sources_[sensor.source].reader->want(*file, runtime_.monotonicTime(), sensor.goodFor(which));
    }
}

/// In the unit of the kind. Absent where the channel has no such file, and when it cannot be had now.
std::optional<double> HwmonSensors::figure(const Sensor& sensor, HwmonFile which)
{
    if (!sensor.file(which)) {
        return std::nullopt;
    }
    const std::size_t file = *sensor.file(which);
    const double now = runtime_.monotonicTime();
    Source& source = sources_[sensor.source];
    HwmonReader& reader = *source.reader;
    want(sensor, which);
    if (!reader.isFresh(file, now)) {
        startReadings(now);
        if (now >= source.notWaitedUntil && !work_->wait([&] { return reader.isFresh(file, now); }, patience)) {
            source.notWaitedUntil = now + waitAgainAfter;
        }
    }
    const auto figure = reader.latest(file, now);
    return figure && sensor.formula && !isFlag(which) ? computed(*sensor.formula, *figure) : figure;
}

/// "nct6775-isa-0290 temp1: Input/output error"
std::string HwmonSensors::failureOf(const Sensor& sensor) const
{
    const auto& file = sensor.file(HwmonFile::Input);
    const int error = file ? sources_[sensor.source].reader->trouble(*file, runtime_.monotonicTime()) : 0;
    return error != 0 ? sensor.record.chip + " " + sensor.record.channel + ": " + std::generic_category().message(error)
                      : std::string();
}

/// Reads every chip that anything is wanted of: one thread goes through them while the first is waited for.
void HwmonSensors::startReadings(double now)
{
    for (const Source& source : sources_) {
        if (source.reader->beginReading(now)) {
            work_->post([reader = source.reader, now] { reader->read(now); });
        }
    }
}

} // namespace meridal
