// The part of SensorsStatCollectorMac that reads sensors.

#include "collectors/sensors/SensorsStatCollectorMac.h"

#include "base/Runtime.h"
#include "base/SharedInstance.h"
#include "collectors/sensors/SensorKind.h"
#include "collectors/sensors/SensorSMCController.h"
#include "collectors/sensors/SensorsARMController.h"
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

} // namespace

SensorsStatCollectorMac::SensorsStatCollectorMac(Context& context, Sources sources)
    : SensorsStatCollector(context)
    , smc_(sources.smc)
    , arm_(sources.arm)
    , platform_(sources.platform)
    , origin_(sources.platform.fauxMac() ? SMCOrigin::Emulated : SMCOrigin::Own)
    , recorded_(context.runtime, "sensors", {"value"})
{
    history().setBeforeCommit([this] { prepareCommit(); });
    smc_.openIfNeeded();
}

SensorsStatCollectorMac& SensorsStatCollectorMac::sharedSensorCollector()
{
    auto& instance = sharedInstance<SensorsStatCollectorMac>();
    if (!instance) {
        instance = std::make_unique<SensorsStatCollectorMac>(Context::shared(),
            Sources{.smc = SensorSMCController::sharedSMC(),
                .arm = SensorsARMController::sharedARM(),
                .platform = PlatformController::sharedPlatformController()});
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
    SensorSMCController::cleanupShared();
}

std::shared_ptr<StatCollectorItem> SensorsStatCollectorMac::makeItem()
{
    return std::make_shared<Item>(context(), smc_, origin_);
}

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

SensorsStatCollectorMac::KeyReading SensorsStatCollectorMac::readingOf(const std::string& key)
{
    if (readings_) {
        if (const auto known = readings_->find(key); known != readings_->end()) {
            return known->second;
        }
        if (readings_->size() >= mostKeysAsked) {
            return {};
        }
    }
    SMCKeyValue data;
    smc_.dataForKey(key, data);
    const float value = Item::convertData(data, origin_);
    const bool exists = data.dataType[0] != '\0';
    const KeyReading reading{.value = smcDecimal(data, value),
        .exists = exists,
        .isMeasured = exists && !smc_.lastReadFailed() && std::isfinite(value)};
    if (readings_) {
        readings_->emplace(key, reading);
    }
    return reading;
}

float SensorsStatCollectorMac::valueForSensorKey(const std::string& key)
{
    return static_cast<float>(readingOf(key).value);
}

bool SensorsStatCollectorMac::isKeyValid(const std::string& key)
{
    constexpr double noSensor = 254; // what some firmware reads where nothing is connected
    constexpr double unknownType = -1;
    const double value = readingOf(key).value;
    return key.starts_with("TG") || (value != noSensor && value != unknownType);
}

/// Where the host itself names a channel, no figure is a sign that there is none.
bool SensorsStatCollectorMac::isThere(const std::string& key)
{
    return channelForKey(key) ? readingOf(key).exists : isKeyValid(key);
}

/// As valueNow, but absent where a key that it needs was not measured.
std::optional<double> SensorsStatCollectorMac::read(const SensorConfiguration& configuration)
{
    std::size_t measured = 0;
    std::size_t missing = 0;
    const double value = compute(configuration, [&](const std::string& key) {
        const KeyReading reading = readingOf(key);
        ++(reading.isMeasured ? measured : missing);
        return reading.isMeasured ? reading.value : -1;
    });
    // A mean makes do with the keys that are there.
    const bool isMean = configuration.average && !configuration.isProduct();
    return measured > 0 && (missing == 0 || isMean) ? std::optional(value) : std::nullopt;
}

/// A value whatever happens: keys that are missing count as what they convert to.
double SensorsStatCollectorMac::valueNow(const SensorConfiguration& configuration)
{
    return finite(compute(configuration, [this](const std::string& key) { return readingOf(key).value; }));
}

double SensorsStatCollectorMac::valueForConfig(const Value& configuration, PowerDetail detail)
{
    const SensorConfiguration understood = parseSensorConfiguration(configuration);
    return detail == PowerDetail::Averaged && isPower(understood) ? averagedPower(understood) : valueNow(understood);
}

std::vector<double> SensorsStatCollectorMac::valuesForConfigs(const Value& configurations, PowerDetail detail)
{
    const OneReading once(*this);
    std::vector<double> values;
    for (const Value& configuration : configurations) {
        values.push_back(valueForConfig(configuration, detail));
    }
    return values;
}

double SensorsStatCollectorMac::valueForSensor(const Item& item)
{
    if (item.source() == Item::Source::SMC) {
        return valueNow(item.sensorConfig());
    }
    const ServiceValues services = readServices();
    const auto found = services.find(item.key().value_or(""));
    return found != services.end() ? found->second : 0;
}

// Power

bool SensorsStatCollectorMac::isPowerKey(const std::string& key) const
{
    const SensorChannel* channel = channelForKey(key.substr(0, 4)); // the SMC goes by the first four
    return sensorKindOfKey(key) == sensorKind::power || (channel && channel->kind == SensorChannelKind::Power);
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
        return isOneKey && !readingOf(configuration.key).exists ? -1 : 0;
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
        powers_.forget(oldest->first);
        watched_.erase(oldest);
    }
    SensorConfiguration kept = configuration;
    kept.name.clear();
    if (kept.average) { // a mean makes do without them, and they need not be read for two minutes
        std::erase_if(*kept.average, [this](const std::string& key) { return !readingOf(key).exists; });
    }
    watched_.emplace(identity, Watched{.configuration = std::move(kept), .lastAsked = now});
    begin();
}

void SensorsStatCollectorMac::sampleWatched(double now)
{
    for (auto each = watched_.begin(); each != watched_.end();) {
        const bool isItems = powers_.notedAt(each->first) == now; // an item has come to feed it
        if (isItems || now - each->second.lastAsked > watchedFor) {
            if (!isItems) {
                powers_.forget(each->first);
            }
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

SensorsStatCollectorMac::ServiceValues SensorsStatCollectorMac::readServices()
{
    ServiceValues values;
    for (const Value& reading : arm_.sensors()) {
        const auto key = text(reading, "key");
        const auto value = number(reading, "value");
        if (key && value && !isEmptyAverage(*key, *value)) {
            values.emplace(*key, *value);
        }
    }
    return values;
}

std::optional<double> SensorsStatCollectorMac::readItem(const Item& item, const ServiceValues& services)
{
    if (item.source() == Item::Source::SMC) {
        const SensorChannel* channel = channelForKey(item.key().value_or(""));
        return channel && channel->disturbs && !isAsked() ? std::nullopt : read(item.sensorConfig());
    }
    const auto service = services.find(item.key().value_or(""));
    return service != services.end() ? std::optional(service->second) : std::nullopt;
}

void SensorsStatCollectorMac::sample(Item& item, const ServiceValues& services, double now)
{
    std::optional<double> reading = readItem(item, services);
    if (reading && isPower(item)) {
        const std::string identity = item.sensorConfig().identity();
        powers_.note(identity, *reading, now);
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
    if (isLogging_ && (!lastMeasured_ || now - *lastMeasured_ > oldAfter)) {
        measure(Reading::WithoutPower); // which no question may cause to be read
    }
}

void SensorsStatCollectorMac::updateStatsForSequence(std::int64_t sequence)
{
    if (isAsked() || sequence % recordTurns == 0) {
        updateStats();
    }
}

void SensorsStatCollectorMac::updateStats()
{
    followChannels();
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
    const SensorItems all = sensors();
    const bool needsServices =
        std::any_of(all.begin(), all.end(), [](const auto& item) { return item->source() == Item::Source::Service; });
    const ServiceValues services = needsServices ? readServices() : ServiceValues();
    for (const auto& item : all) {
        if (what == Reading::All || !isPower(*item)) {
            sample(*item, services, now);
        }
    }
    if (what == Reading::All) {
        sampleWatched(now);
    }
}

void SensorsStatCollectorMac::lookAtFlags(double now)
{
    if (!channels_.empty() && now >= nextFlagLook_) {
        nextFlagLook_ = now + flagInterval;
        alarms_.note(context().host.sensorChannels->flags(), now);
    }
}

void SensorsStatCollectorMac::begin()
{
    if (!isLogging_ && !stopped() && (!items().empty() || !watched_.empty())) {
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

const SensorChannel* SensorsStatCollectorMac::channelForKey(const std::string& key) const
{
    const auto found = channels_.find(key);
    return found != channels_.end() ? &found->second : nullptr;
}

std::int64_t SensorsStatCollectorMac::kindOf(const Item& item) const
{
    const SensorChannel* channel = channelForKey(item.key().value_or(""));
    if (!channel) {
        return item.type();
    }
    switch (channel->kind) {
    case SensorChannelKind::Temperature:
        return sensorKind::temperature;
    case SensorChannelKind::Fan:
        return sensorKind::fan;
    case SensorChannelKind::Voltage:
        return sensorKind::voltage;
    case SensorChannelKind::Current:
        return sensorKind::current;
    case SensorChannelKind::Power:
        return sensorKind::power;
    case SensorChannelKind::Humidity:
        return sensorKind::humidity;
    }
    return item.type();
}

std::string SensorsStatCollectorMac::nameOf(const Item& item) const
{
    const SensorChannel* channel = channelForKey(item.key().value_or(""));
    return channel ? channel->label : item.name().empty() ? item.key().value_or("") : item.name();
}

bool SensorsStatCollectorMac::isSettling() const
{
    const double now = context().runtime.monotonicTime();
    const SensorItems all = sensors();
    return std::any_of(all.begin(), all.end(), [&](const auto& item) {
        const std::string identity = isPower(*item) ? item->sensorConfig().identity() : std::string();
        const auto noted = powers_.notedAt(identity);
        return noted && now - *noted <= PowerAverages::longestGap && !powers_.average(identity, now);
    });
}

SensorAlarm SensorsStatCollectorMac::alarmOf(const Item& item) const
{
    const std::string key = item.key().value_or("");
    const auto value = item.hasValue() ? std::optional(item.value()) : std::nullopt;
    const SensorChannel* channel = channelForKey(key);
    if (!channel) {
        return SensorAlarm::None; // the range that a client gave is that of its gauge
    }
    SensorFlags flags = alarms_.flags(key, context().runtime.monotonicTime());
    if (const auto found = meaninglessFlags_.find(key); found != meaninglessFlags_.end()) {
        flags.any = flags.any && !found->second.any;
        flags.low = flags.low && !found->second.low;
        flags.high = flags.high && !found->second.high;
        flags.critical = flags.critical && !found->second.critical;
    }
    if (channel->kind == SensorChannelKind::Fan && channel->low && !item.hasBeenAboveZero()) {
        SensorChannel unconnected = *channel; // as far as its speed tells; its chip may know better
        unconnected.mayStandStill = true;
        return sensorAlarm(unconnected, value, flags);
    }
    return sensorAlarm(*channel, value, flags);
}

} // namespace meridal
