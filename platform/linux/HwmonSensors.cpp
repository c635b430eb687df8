#include "platform/linux/HwmonSensors.h"

#include "base/Runtime.h"
#include "base/Text.h"
#include "base/ThreadedSlowWork.h"

#include <utility>

namespace meridal {

namespace {

constexpr double lookInterval = 5.0;    // s, where chips are not announced: containers, recorded trees
constexpr double figureGoodFor = 0.2;   // s; one round of questions costs one reading
constexpr double limitGoodFor = 60.0;   // s
constexpr double waitAgainAfter = 60.0; // s

/// The files behind a chip's sensors, four a channel: the input and three limits.
std::vector<HwmonReader::File> filesOf(const HwmonChip& chip)
{
    std::vector<HwmonReader::File> files;
    for (const HwmonChannel& channel : chip.channels) {
        const double units = unitsOf(channel.kind);
        files.push_back({.name = channel.input, .fault = channel.fault, .units = units});
        for (const std::string* limit : {&channel.low, &channel.high, &channel.critical}) {
            files.push_back({.name = *limit, .fault = {}, .units = units});
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
            source.reader = std::make_shared<HwmonReader>(root_.path(source.chip.folder), filesOf(source.chip));
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
    for (std::size_t i = 0; i < chip.channels.size(); ++i) {
        const HwmonChannel& channel = chip.channels[i];
        if (config.isIgnored(chip.name, channel.name)) {
            continue;
        }
        HwmonSensor sensor;
        sensor.kind = channel.kind;
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
        const auto file = [&](std::size_t number, const std::string& name) {
            return name.empty() ? std::nullopt : std::optional(4 * i + number);
        };
        sensor.reader = reader;
        sensor.input = 4 * i;
        sensor.low = file(1, channel.low);
        sensor.high = file(2, channel.high);
        sensor.critical = file(3, channel.critical);
        sensors_.push_back(std::move(sensor));
    }
}

double HwmonSensors::now() const { return runtime_.monotonicTime(); }

std::optional<double> HwmonSensors::value(const HwmonSensor& sensor)
{
    return figure(sensor, sensor.input, figureGoodFor);
}

std::optional<double> HwmonSensors::limit(const HwmonSensor& sensor, std::optional<std::size_t> file)
{
    return file ? figure(sensor, *file, limitGoodFor) : std::nullopt;
}

std::optional<double> HwmonSensors::figure(const HwmonSensor& sensor, std::size_t file, double goodFor)
{
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
    return figure && sensor.formula ? sensor.formula->evaluate(*figure) : figure;
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
