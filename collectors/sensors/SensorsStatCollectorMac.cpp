// SPDX-License-Identifier: Apache-2.0
// The part of SensorsStatCollectorMac that reads sensors.

#include "collectors/sensors/SensorsStatCollectorMac.h"

#include "base/Runtime.h"
#include "base/SharedInstance.h"
#include "collectors/sensors/SensorKind.h"
#include "platform/Context.h"
#include "platform/PlatformController.h"
#include "platform/host/Host.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace meridal {

namespace {

/// The value of a configuration from the values of its keys.
template <typename ValueOf>
double compute(const SensorConfiguration& configuration, ValueOf valueOf)
{
    constexpr double thousandths = 1000; // of V and A
    if (configuration.isProduct()) {
        const double volts = valueOf((*configuration.multiply)[0]) / thousandths;
        return std::abs(volts * (valueOf((*configuration.multiply)[1]) / thousandths));
    }
    if (!configuration.average) {
        return valueOf(configuration.key);
    }
    double sum = 0;
    int count = 0;
    for (const std::string& key : *configuration.average) {
        if (const double value = valueOf(key); value > 0) {
            sum += value;
            ++count;
        }
    }
    return count > 0 ? sum / count : 0;
}

/// What clients get for a key that the machine lacks.
constexpr double noKey = -1;

} // namespace

SensorsStatCollectorMac::SensorsStatCollectorMac(Context& context, const PlatformController& platform)
    : SensorsStatCollector(context)
    , platform_(platform)
    , source_(*context.host.sensors)
    , keys_(context.paths.support / "sensor-keys")
    , recorded_(context.runtime, "sensors", {"value"})
    , failures_(context.log, context.runtime)
{
    history().setBeforeCommit([this] { prepareCommit(); });
}

SensorsStatCollectorMac& SensorsStatCollectorMac::sharedSensorCollector()
{
    auto& instance = sharedInstance<SensorsStatCollectorMac>();
    if (!instance) {
        instance = std::make_unique<SensorsStatCollectorMac>(
            Context::shared(), PlatformController::sharedPlatformController());
    }
    return *instance;
}

void SensorsStatCollectorMac::cleanupShared()
{
    auto& instance = sharedInstance<SensorsStatCollectorMac>();
    if (instance) {
        instance->cleanup();
        instance.reset();
    }
}

std::shared_ptr<StatCollectorItem> SensorsStatCollectorMac::makeItem() { return std::make_shared<Item>(context()); }

// Values

SensorsStatCollectorMac::OneReading::OneReading(SensorsStatCollectorMac& collector)
    : collector_(collector), isOuter_(!collector.readings_)
{
    if (isOuter_) {
        collector_.readings_.emplace();
    }
}

SensorsStatCollectorMac::OneReading::~OneReading()
{
    if (isOuter_) {
        collector_.readings_.reset();
    }
}

/// What the host calls a key of the clients': of its four characters all that they read hangs on.
std::string SensorsStatCollectorMac::sourceOf(const std::string& key) const
{
    const std::string four = key.substr(0, 4);
    const SensorRecord* record = recordForKey(four);
    return record ? record->key : four;
}

SensorReading SensorsStatCollectorMac::readingOf(const std::string& key)
{
    const auto figure = fanFigure(key);
    return figure ? SensorReading{.isThere = true, .value = figure} : readSource(sourceOf(key));
}

SensorReading SensorsStatCollectorMac::readSource(const std::string& source)
{
    if (!readings_) {
        return source_.read({&source, 1}).front();
    }
    const auto known = readings_->find(source);
    if (known == readings_->end()) {
        readAhead(std::vector{source});
        const auto read = readings_->find(source);
        return read != readings_->end() ? read->second : SensorReading();
    }
    return known->second;
}

/// Reads these in one go, as far as they have not been read in this turn.
void SensorsStatCollectorMac::readAhead(const std::vector<std::string>& sources)
{
    std::vector<std::string> unread;
    std::vector<SensorReading*> readings; // which stay where they are
    for (const std::string& source : sources) {
        if (readings_->size() >= mostKeysAsked) {
            break;
        }
        if (const auto [reading, isNew] = readings_->try_emplace(source); isNew) {
            unread.push_back(source);
            readings.push_back(&reading->second);
        }
    }
    const std::vector<SensorReading> said = source_.read(unread);
    for (std::size_t index = 0; index < unread.size(); ++index) {
        *readings[index] = said[index];
        noteFailure(unread[index], said[index].failure);
    }
}

/// One that fails for a moment is no news: chips of disks do while the machine wakes up.
void SensorsStatCollectorMac::noteFailure(const std::string& source, const std::string& failure)
{
    constexpr double moment = 10; // s: longer than a reading is handed out again
    const double now = context().runtime.monotonicTime();
    if (failure.empty()) {
        failingSince_.erase(source);
    } else if (now - failingSince_.try_emplace(source, now).first->second >= moment) {
        failures_.tell(source, "A sensor cannot be read: " + failure);
    }
}

void SensorsStatCollectorMac::readAhead(const SensorItems& items)
{
    std::vector<std::string> sources;
    for (const auto& item : items) {
        if (isLeftAlone(*item)) {
            continue;
        }
        if (item->source() == Item::Source::Service) {
            if (const Service* service = serviceNamed(item->key().value_or(""))) {
                sources.push_back(service->source);
            }
        } else {
            compute(item->sensorConfig(), [&](const std::string& key) {
                if (!fanFigure(key)) {
                    sources.push_back(sourceOf(key));
                }
                return 0;
            });
        }
    }
    readAhead(sources);
}

/// A figure whatever happens; not a number where there is none now.
double SensorsStatCollectorMac::valueForKey(const std::string& key)
{
    const SensorReading reading = readingOf(key);
    return reading.isThere ? reading.value.value_or(std::nan("")) : noKey;
}

float SensorsStatCollectorMac::valueForSensorKey(const std::string& key)
{
    return static_cast<float>(valueForKey(key));
}

bool SensorsStatCollectorMac::isKeyValid(const std::string& key)
{
    constexpr double noSensor = 254; // what some firmware reads where nothing is connected
    const double value = valueForKey(key);
    return key.starts_with("TG") || (value != noSensor && value != noKey);
}

/// Where the host itself names a sensor, no figure is a sign that there is none.
bool SensorsStatCollectorMac::isThere(const std::string& key)
{
    return recordForKey(key) ? readingOf(key).isThere : isKeyValid(key);
}

/// As valueNow, but absent where a key that it needs was not measured.
std::optional<double> SensorsStatCollectorMac::read(const SensorConfiguration& configuration)
{
    std::size_t measured = 0;
    std::size_t missing = 0;
    const double value = compute(configuration, [&](const std::string& key) {
        const SensorReading reading = readingOf(key);
        ++(reading.value ? measured : missing);
        return reading.value.value_or(noKey);
    });
    // A mean makes do with the keys that are there.
    const bool isMean = configuration.average && !configuration.isProduct();
    return measured > 0 && (missing == 0 || isMean) ? std::optional(value) : std::nullopt;
}

/// A value whatever happens: keys that are missing count as what they convert to.
double SensorsStatCollectorMac::valueNow(const SensorConfiguration& configuration)
{
    return finite(compute(configuration, [this](const std::string& key) { return valueForKey(key); }));
}

double SensorsStatCollectorMac::valueForConfig(const Value& configuration, PowerDetail detail)
{
    const SensorConfiguration understood = parseSensorConfiguration(configuration);
    return detail == PowerDetail::Averaged && isPower(understood) ? averagedPower(understood) : valueNow(understood);
}

std::vector<double> SensorsStatCollectorMac::valuesForConfigs(const Value& configurations, PowerDetail detail)
{
    startToFollow();
    const OneReading once(*this);
    std::vector<double> values;
    for (const Value& configuration : configurations) {
        values.push_back(valueForConfig(configuration, detail));
    }
    return values;
}

double SensorsStatCollectorMac::valueForSensor(const Item& item)
{
    return item.source() == Item::Source::SMC ? valueNow(item.sensorConfig()) : readItem(item).value_or(0);
}

// Power

bool SensorsStatCollectorMac::isPowerKey(const std::string& key) const
{
    const SensorRecord* record = recordForKey(key.substr(0, 4)); // which is all that is read of it
    return sensorKindOfKey(key) == sensorKind::power || (record && record->kind == SensorKind::Power);
}

/// Told by the keys that the value is made of, whatever kind a client claims.
bool SensorsStatCollectorMac::isPower(const SensorConfiguration& configuration) const
{
    if (configuration.isProduct() || configuration.kind() == sensorKind::power) {
        return true;
    }
    if (configuration.average) {
        return std::any_of(configuration.average->begin(), configuration.average->end(),
            [this](const std::string& key) { return isPowerKey(key); });
    }
    return isPowerKey(configuration.key);
}

bool SensorsStatCollectorMac::isPower(const Item& item) const
{
    return item.source() == Item::Source::SMC // services are temperatures
        && (isPowerKey(item.key().value_or("")) || isPower(item.sensorConfig()));
}

double SensorsStatCollectorMac::averagedPower(const SensorConfiguration& configuration)
{
    if (!read(configuration)) {
        // Not what valueNow makes of it: a product with a missing factor is the other one, as fine as it is.
        const bool isOneKey = !configuration.isProduct() && !configuration.average;
        return isOneKey && !readingOf(configuration.key).isThere ? noKey : 0;
    }
    watch(configuration);
    const auto average = powers_.average(configuration.identity(), context().runtime.monotonicTime());
    return roundedPower(average.value_or(0));
}

void SensorsStatCollectorMac::watch(const SensorConfiguration& configuration)
{
    const double now = context().runtime.monotonicTime();
    const std::string identity = configuration.identity();
    const auto known = watched_.find(identity);
    if (known != watched_.end()) {
        known->second.lastAsked = now;
        return;
    }
    const auto noted = powers_.notedAt(identity);
    const bool isItems = noted && now - *noted <= PowerAverages::longestGap;
    if (isItems || configuration.key.size() > mostConfiguredKeys) {
        return;
    }
    if (watched_.size() >= mostWatched) {
        const auto oldest = std::min_element(watched_.begin(), watched_.end(),
            [](const auto& first, const auto& second) { return first.second.lastAsked < second.second.lastAsked; });
        watched_.erase(oldest);
    }
    SensorConfiguration kept = configuration;
    kept.name.clear();
    if (kept.average) { // a mean makes do without them, and they need not be read for two minutes
        std::erase_if(*kept.average, [this](const std::string& key) { return !readingOf(key).isThere; });
    }
    watched_.emplace(identity, Watched{.configuration = std::move(kept), .lastAsked = now});
    begin();
}

void SensorsStatCollectorMac::sampleWatched(double now)
{
    for (auto each = watched_.begin(); each != watched_.end();) {
        const bool isItems = powers_.notedAt(each->first) == now; // an item has come to feed it
        if (isItems || now - each->second.lastAsked > watchedFor) {
            each = watched_.erase(each);
            continue;
        }
        if (const auto watts = read(each->second.configuration)) {
            powers_.note(each->first, *watts, now);
        }
        ++each;
    }
}

// The clock

/// Whether it is not to be read now: for the record alone a disk's rest is not worth it.
bool SensorsStatCollectorMac::isLeftAlone(const Item& item) const
{
    const std::string key = item.key().value_or("");
    const SensorRecord* record = recordForKey(key);
    const Service* service = item.source() == Item::Source::Service ? serviceNamed(key) : nullptr;
    return ((record && record->disturbs) || (service && service->disturbs)) && !isAsked();
}

std::optional<double> SensorsStatCollectorMac::readItem(const Item& item)
{
    if (isLeftAlone(item)) {
        return std::nullopt;
    }
    if (item.source() == Item::Source::SMC) {
        return read(item.sensorConfig());
    }
    const Service* service = serviceNamed(item.key().value_or(""));
    return service ? readSource(service->source).value : std::nullopt;
}

void SensorsStatCollectorMac::sample(Item& item, double now, Sampling why)
{
    std::optional<double> reading = readItem(item);
    if (reading && isPower(item)) {
        const std::string identity = item.sensorConfig().identity();
        if (why == Sampling::Turn || !powers_.notedAt(identity)) { // no question adds to what is averaged
            powers_.note(identity, *reading, now);
        }
        reading = powers_.average(identity, now); // so that nothing kept is finer than what everybody may see
        if (reading && !isPowerKey(item.key().value_or(""))) {
            reading = roundedPower(*reading); // the record keeps the key only, which will not tell that it is power
        }
    }
    if (!reading || !std::isfinite(*reading)) {
        item.setValueMissing();
        return;
    }
    item.noteRecordedValue(*reading);
    item.addValue(*reading, nullptr);
}

bool SensorsStatCollectorMac::isAsked() const
{
    return lastAsked_ && context().runtime.monotonicTime() - *lastAsked_ <= askedFor;
}

void SensorsStatCollectorMac::noteQuestion()
{
    constexpr double oldAfter = 2; // s
    const double now = context().runtime.monotonicTime();
    lastAsked_ = now;
    if (rests_) {
        begin();
    }
    if (isLogging_ && (!lastMeasured_ || now - *lastMeasured_ > oldAfter)) {
        measure(Reading::WithoutPower); // which no question may cause to be read
    }
}

void SensorsStatCollectorMac::readWhatNobodyReads()
{
    constexpr double oldAfter = 2 * recordTurns; // s
    const double now = context().runtime.monotonicTime();
    if (lastMeasured_ && now - *lastMeasured_ <= oldAfter) {
        return;
    }
    measure(Reading::WithoutPower);
    for (const auto& item : sensors()) {
        if (isPower(*item) && !powers_.average(item->sensorConfig().identity(), now)) {
            item->setValueMissing();
        }
    }
}

void SensorsStatCollectorMac::updateStatsForSequence(std::int64_t sequence)
{
    const bool isRecorded = history().isRecording();
    if (!isRecorded && !isAsked()) {
        rest();
    } else if (isAsked() || sequence % recordTurns == 0) {
        updateStats();
    }
}

void SensorsStatCollectorMac::rest()
{
    rests_ = true;
    isLogging_ = false;
    setStopped(true);
}

void SensorsStatCollectorMac::updateStats()
{
    follow();
    measure(Reading::All);
    lookAtFlags(context().runtime.monotonicTime());
    dropUnproven();
    updaterFinishBlock()(*this);
}

void SensorsStatCollectorMac::measure(Reading what)
{
    const OneReading once(*this);
    const double now = context().runtime.monotonicTime(); // one for all: it tells what this turn has noted
    lastMeasured_ = now;
    SensorItems due = sensors();
    clients_.forEach([&due](const auto& item) { due.push_back(item); });
    if (what == Reading::WithoutPower) {
        std::erase_if(due, [this](const auto& item) { return isPower(*item); });
    }
    readAhead(due);
    for (const auto& item : due) {
        sample(*item, now, Sampling::Turn);
    }
    if (what == Reading::All) {
        sampleWatched(now);
        powers_.forgetOld(now); // whoever named them may be gone
    }
}

void SensorsStatCollectorMac::lookAtFlags(double now)
{
    if (!named_.empty() && now >= nextFlagLook_) {
        nextFlagLook_ = now + flagInterval;
        alarms_.note(source_.flags(), now);
    }
}

void SensorsStatCollectorMac::begin()
{
    if (rests_ && (isAsked() || history().isRecording())) {
        rests_ = false;
        setStopped(false);
    }
    if (!isLogging_ && !stopped() && (!items().empty() || !watched_.empty() || !clients_.empty())) {
        isLogging_ = true;
        startLogging();
    }
}

// Items

SensorsStatCollectorMac::SensorItems SensorsStatCollectorMac::sensors() const
{
    SensorItems all;
    all.reserve(items().size());
    for (const auto& item : items()) {
        all.push_back(std::static_pointer_cast<Item>(item)); // makeItem makes no others
    }
    return all;
}

SensorsStatCollectorMac::SensorItems SensorsStatCollectorMac::allFans() const
{
    SensorItems fans = sensors();
    std::erase_if(fans, [](const auto& item) { return item->type() != sensorKind::fan; });
    return fans;
}

SensorsStatCollectorMac::SensorItems SensorsStatCollectorMac::fanControlFans() const
{
    SensorItems fans = allFans();
    if (platform_.currentPlatform().usesSyncedFans()) {
        const bool hasFrontFans = platform_.modelIdentifier() == "MacPro7,1";
        for (const auto& fan : fans) {
            if (hasFrontFans && fan->key() == "F1Ac") {
                fan->setNameFanControl("Front Fans");
            } else if (!hasFrontFans && fan->key() == "F0Ac") {
                fan->setNameFanControl("Fans");
            }
        }
    }
    return fans;
}

const SensorRecord* SensorsStatCollectorMac::recordForKey(const std::string& key) const
{
    const auto found = named_.find(key);
    return found != named_.end() ? &found->second.record : nullptr;
}

std::int64_t SensorsStatCollectorMac::kindOf(const Item& item) const
{
    const SensorRecord* record = recordForKey(item.key().value_or(""));
    if (!record) {
        return item.type();
    }
    switch (record->kind) {
    case SensorKind::Temperature:
        return sensorKind::temperature;
    case SensorKind::Fan:
        return sensorKind::fan;
    case SensorKind::Voltage:
        return sensorKind::voltage;
    case SensorKind::Current:
        return sensorKind::current;
    case SensorKind::Power:
        return sensorKind::power;
    case SensorKind::Humidity:
        return sensorKind::humidity;
    }
    return item.type();
}

std::string SensorsStatCollectorMac::nameOf(const Item& item) const
{
    const SensorRecord* record = recordForKey(item.key().value_or(""));
    return record ? record->label : item.name().empty() ? item.key().value_or("") : item.name();
}

bool SensorsStatCollectorMac::isSettling(std::optional<std::uint32_t> uid) const
{
    const double now = context().runtime.monotonicTime();
    const auto settles = [&](const auto& item) {
        const std::string identity = isPower(*item) ? item->sensorConfig().identity() : std::string();
        const auto noted = powers_.notedAt(identity);
        return noted && now - *noted <= PowerAverages::longestGap && !powers_.average(identity, now);
    };
    const SensorItems shared = sensors();
    const auto& theirs = clients_.ofUser(uid.value_or(0));
    return std::any_of(shared.begin(), shared.end(), settles)
        || std::any_of(theirs.begin(), theirs.end(), [&](const auto& each) { return settles(each.second.item); });
}

SensorAlarm SensorsStatCollectorMac::alarmOf(const Item& item) const
{
    const auto value = item.hasValue() ? std::optional(item.value()) : std::nullopt;
    const auto found = named_.find(item.key().value_or(""));
    if (found == named_.end()) {
        return SensorAlarm::None; // the range that a client gave is that of its gauge
    }
    const auto& [record, told, meaningless] = found->second;
    const SensorFlags flags = meant(alarms_.flags(record.key, context().runtime.monotonicTime()), meaningless);
    if (record.kind == SensorKind::Fan && record.limits.low && !item.hasBeenAboveZero()) {
        SensorRecord unconnected = record; // as far as its speed tells; its chip may know better
        unconnected.mayStandStill = true;
        return sensorAlarm(unconnected, value, flags);
    }
    return sensorAlarm(record, value, flags);
}

} // namespace meridal
