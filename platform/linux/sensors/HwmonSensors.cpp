#include "platform/linux/sensors/HwmonSensors.h"

#include "base/Runtime.h"
#include "base/Text.h"
#include "base/ThreadedSlowWork.h"

#include <utility>

namespace meridal {

namespace {

constexpr double lookInterval = 5.0;    // s, where chips are not announced: containers, recorded trees
constexpr double figureGoodFor = 0.2;   // s; one round of questions costs one reading
constexpr double limitGoodFor = 60.0;   // s
constexpr double flagGoodFor = 5.0;     // s
constexpr double restGoodFor = 300.0;   // s, of a disk that may want to rest
constexpr double waitAgainAfter = 60.0; // s

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

} // namespace

HwmonSensors::HwmonSensors(Runtime& runtime, HwmonOptions options, std::shared_ptr<Limitations> limitations)
    : runtime_(runtime)
    , root_(options.root)
    , patience_(options.patience)
    , work_(options.work ? std::move(options.work) : std::make_unique<ThreadedSlowWork>())
    , limitations_(std::move(limitations))
    , keys_(options.keyFile)
    , uevents_(std::make_unique<Uevents>(runtime, options.root, "hwmon", [this] { announced_ = true; }))
{
}

const std::vector<HwmonSensor>& HwmonSensors::sensors()
{
    look();
    return sensors_;
}

std::uint64_t HwmonSensors::generation()
{
    look();
    return generation_;
}

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
    usedKeys_.clear();
    const SensorsConfig config = SensorsConfig::read(root_);
    std::vector<HwmonChip> chips = readHwmonChips(root_);
    std::set<std::string, std::less<>> identities;
    for (const HwmonChip& chip : chips) {
        for (const HwmonChannel& channel : chip.channels) {
            identities.insert(chip.identity + "/" + channel.name);
            if (!channel.ownKey.empty()) {
                keys_.reserve(channel.ownKey);
            }
        }
    }
    for (HwmonChip& chip : chips) {
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
        addSensors(source.chip, config, sources_.size(), identities);
        sources_.push_back(std::move(source));
    }
    ++generation_;
    if (keys_.save()) {
        limitations_->clear("sensor-keys");
    } else {
        limitations_->set("sensor-keys", "the keys of sensors cannot be written to the state folder");
    }
}

void HwmonSensors::addSensors(const HwmonChip& chip, const SensorsConfig& config, std::size_t reader,
    const std::set<std::string, std::less<>>& identities)
{
    std::size_t nextFile = 0; // in the order of filesOf()
    for (const HwmonChannel& channel : chip.channels) {
        HwmonSensor sensor;
        for (std::size_t what = 0; what < hwmonFileCount; ++what) {
            sensor.files[what] = channel.files[what].empty() ? std::nullopt : std::optional(nextFile++);
        }
        if (config.isIgnored(chip.name, channel.name)) {
            continue;
        }
        if (chip.prefix == "coretemp") { // where its fans are to turn faster, which is all right
            sensor.files[static_cast<std::size_t>(HwmonFile::High)].reset();
        }
        sensor.kind = channel.kind;
        sensor.isSMCs = !channel.ownKey.empty();
        sensor.disturbs = chip.prefix == "drivetemp";
        sensor.key = channel.ownKey;
        sensor.chip = chip.name;
        if (sensor.key.empty()) {
            sensor.key = keys_.keyFor(channel.kind, chip.identity + "/" + channel.name, identities);
        }
        if (sensor.key.empty() || !usedKeys_.insert(sensor.key).second) {
            continue;
        }
        sensor.label = printable(config.label(chip.name, channel.name).value_or(channel.label));
        if (sensor.label.empty()) {
            sensor.label = channel.name;
        }
        if (const SensorsExpression* formula = config.formula(chip.name, channel.name)) {
            sensor.formula = *formula;
        }
        sensor.reader = reader;
        sensors_.push_back(std::move(sensor));
    }
}

double HwmonSensors::now() const { return runtime_.monotonicTime(); }

std::optional<double> HwmonSensors::value(const HwmonSensor& sensor)
{
    return figure(sensor, HwmonFile::Input, sensor.disturbs ? restGoodFor : figureGoodFor);
}

std::optional<double> HwmonSensors::limit(const HwmonSensor& sensor, HwmonFile which)
{
    return figure(sensor, which, limitGoodFor);
}

std::map<std::string, SensorFlags> HwmonSensors::flags()
{
    const double now = runtime_.monotonicTime();
    const std::vector<HwmonSensor>& all = sensors();
    for (const HwmonSensor& sensor : all) { // first all that is wanted: one reading a chip
        for (std::size_t what = 0; what < hwmonFileCount; ++what) {
            if (const auto& file = sensor.files[what]; file && isFlag(static_cast<HwmonFile>(what))) {
                sources_[sensor.reader].reader->want(*file, now, flagGoodFor);
            }
        }
    }
    std::map<std::string, SensorFlags> raised;
    for (const HwmonSensor& sensor : all) {
        if (const SensorFlags flags = flagsOf(sensor); flags != SensorFlags()) {
            raised.emplace(sensor.key, flags);
        }
    }
    return raised;
}

SensorFlags HwmonSensors::flagsOf(const HwmonSensor& sensor)
{
    const auto isSet = [&](HwmonFile which) { return figure(sensor, which, flagGoodFor).value_or(0) != 0; };
    using enum HwmonFile;
    return {.any = isSet(Alarm),
        .low = isSet(LowAlarm),
        .high = isSet(HighAlarm) || isSet(CapAlarm),
        .critical = isSet(CriticalAlarm) || isSet(LowCriticalAlarm) || isSet(EmergencyAlarm),
        .fault = sources_[sensor.reader].reader->isFaulty(*sensor.file(Input), now())};
}

/// Absent where the channel has no such file.
std::optional<double> HwmonSensors::figure(const HwmonSensor& sensor, HwmonFile which, double goodFor)
{
    if (!sensor.file(which)) {
        return std::nullopt;
    }
    const std::size_t file = *sensor.file(which);
    const double now = runtime_.monotonicTime();
    Source& source = sources_[sensor.reader];
    HwmonReader& reader = *source.reader;
    reader.want(file, now, goodFor);
    if (!reader.isFresh(file, now)) {
        startReadings(now);
        if (now >= source.notWaitedUntil && !work_->wait([&] { return reader.isFresh(file, now); }, patience_)) {
            source.notWaitedUntil = now + waitAgainAfter;
        }
    }
    const auto figure = reader.latest(file, now);
    return figure && sensor.formula && !isFlag(which) ? sensor.formula->evaluate(*figure) : figure;
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
