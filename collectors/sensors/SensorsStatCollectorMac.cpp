// The part of SensorsStatCollectorMac that reads sensors and keeps the record of them.

#include "collectors/sensors/SensorsStatCollectorMac.h"

#include "base/Runtime.h"
#include "base/SharedInstance.h"
#include "collectors/sensors/SensorKind.h"
#include "collectors/sensors/SensorLimits.h"
#include "collectors/sensors/SensorSMCController.h"
#include "collectors/sensors/SensorsARMController.h"
#include "database/HistoryDatabaseController.h"
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
{
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

float SensorsStatCollectorMac::valueForSensorKey(const std::string& key)
{
    SMCKeyValue data;
    smc_.dataForKey(key, data);
    return Item::convertData(data, origin_);
}

bool SensorsStatCollectorMac::isKeyValid(const std::string& key)
{
    constexpr float noSensor = 254; // what some firmware reads where nothing is connected
    constexpr float unknownType = -1;
    const float value = valueForSensorKey(key);
    return key.starts_with("TG") || (value != noSensor && value != unknownType);
}

bool SensorsStatCollectorMac::hasKey(const std::string& key)
{
    SMCKeyValue data;
    smc_.dataForKey(key, data);
    return data.dataType[0] != '\0';
}

/// Absent where there is no such key, and where it could not be read this time.
std::optional<float> SensorsStatCollectorMac::readKey(const std::string& key)
{
    if (turnReadings_) {
        if (const auto known = turnReadings_->find(key); known != turnReadings_->end()) {
            return known->second;
        }
    }
    SMCKeyValue data;
    smc_.dataForKey(key, data);
    const float value = Item::convertData(data, origin_);
    const bool isMeasured = data.dataType[0] != '\0' && !smc_.lastReadFailed() && std::isfinite(value);
    const auto reading = isMeasured ? std::optional(value) : std::nullopt;
    if (turnReadings_) {
        turnReadings_->emplace(key, reading);
    }
    return reading;
}

/// As valueNow, but absent where a key that it needs was not measured.
std::optional<double> SensorsStatCollectorMac::read(const SensorConfiguration& configuration)
{
    std::size_t measured = 0;
    std::size_t missing = 0;
    const double value = compute(configuration, [&](const std::string& key) {
        const auto reading = readKey(key);
        ++(reading ? measured : missing);
        return reading.value_or(-1);
    });
    // A mean makes do with the keys that are there.
    const bool isMean = configuration.average && !configuration.isProduct();
    return measured > 0 && (missing == 0 || isMean) ? std::optional(value) : std::nullopt;
}

/// A value whatever happens: keys that are missing count as what they convert to.
double SensorsStatCollectorMac::valueNow(const SensorConfiguration& configuration)
{
    return finite(compute(configuration, [this](const std::string& key) { return valueForSensorKey(key); }));
}

double SensorsStatCollectorMac::valueForConfig(const Value& configuration, PowerDetail detail)
{
    const SensorConfiguration understood = parseSensorConfiguration(configuration);
    return detail == PowerDetail::Averaged && isPower(understood) ? averagedPower(understood) : valueNow(understood);
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
        return isOneKey && !hasKey(configuration.key) ? -1 : 0;
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
        std::erase_if(*kept.average, [this](const std::string& key) { return !hasKey(key); });
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

void SensorsStatCollectorMac::sample(Item& item, const ServiceValues& services, double now)
{
    std::optional<double> reading;
    if (item.source() == Item::Source::SMC) {
        reading = read(item.sensorConfig());
    } else if (const auto service = services.find(item.key().value_or("")); service != services.end()) {
        reading = service->second;
    }
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

void SensorsStatCollectorMac::updateStats()
{
    followChannels();
    turnReadings_.emplace();                              // however many figures are made of a key, it is read once
    const double now = context().runtime.monotonicTime(); // one for all: it tells what this turn has noted
    const SensorItems all = sensors();
    const bool needsServices =
        std::any_of(all.begin(), all.end(), [](const auto& item) { return item->source() == Item::Source::Service; });
    const ServiceValues services = needsServices ? readServices() : ServiceValues();
    for (const auto& item : all) {
        sample(*item, services, now);
    }
    sampleWatched(now);
    turnReadings_.reset();
    dropUnproven();
    updaterFinishBlock()(*this);
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

SeriesName SensorsStatCollectorMac::nameForItem(const StatCollectorItem& item) const
{
    const auto& sensor = static_cast<const Item&>(item); // makeItem() makes no others
    const SensorChannel* channel = channelForKey(sensor.key().value_or(""));
    return {.name = channel ? channel->label : sensor.name(),
        .origin = channel ? channel->chip : "",
        .unit = std::string(sensorUnit(kindOf(sensor)))};
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
    }
    return item.type();
}

// Extremes

bool SensorsStatCollectorMac::prepareDatabase()
{
    if (preparedDatabase()) {
        return false;
    }
    const bool migrated = StatCollector::prepareDatabase();
    if (const auto file = database()) {
        file->declareTable(sensorLimitsTable());
        file->declareTable(keptSensorsTable());
    }
    return migrated;
}

/// The file of the record, which is made when it is not there; null without one.
std::shared_ptr<HistoryDatabaseItem> SensorsStatCollectorMac::database()
{
    return context().databases && databaseEnabled() ? context().databases->databaseWithPath(dbpath()) : nullptr;
}

void SensorsStatCollectorMac::loadSeenLimits(std::vector<std::string> keys)
{
    if (keys.empty()) {
        return;
    }
    prepareDatabase();
    const auto file = database();
    if (!file) {
        return;
    }
    auto adopt =
        sensorLifetime_.guard([this](const auto& names, const auto& limits) { takeSeenLimits(names, limits); });
    Queue& mainQueue = context().runtime.mainQueue();
    file->queryDatabaseAsync([keys = std::move(keys), adopt, &mainQueue](SQLiteConnection& connection) {
        mainQueue.post([adopt, keys, limits = readSensorLimits(connection, keys)]() mutable { adopt(keys, limits); });
    });
}

void SensorsStatCollectorMac::takeSeenLimits(
    const std::vector<std::string>& keys, const std::vector<std::optional<SeenLimits>>& limits)
{
    for (std::size_t index = 0; index < keys.size() && index < limits.size(); ++index) {
        if (const auto sensor = sensorWithKey(keys[index]); sensor && limits[index]) {
            sensor->takeStoredLimits(*limits[index]);
        }
    }
}

void SensorsStatCollectorMac::updateRecordedValues()
{
    for (const auto& item : sensors()) {
        const auto file = item->recordedValueChanged() && item->knowsStoredLimits() ? database() : nullptr;
        if (file) {
            item->setRecordedValueChanged(false);
            file->addItem({.table = sensorLimitsTable().table,
                .format = updateSensorLimits,
                .args = {item->lowestRecordedValue(), item->highestRecordedValue(), item->key().value_or("")}});
        }
    }
}

void SensorsStatCollectorMac::runDatabaseQueue()
{
    updateRecordedValues(); // so that they share the transaction of the rows
    StatCollector::runDatabaseQueue();
    std::vector<std::string> unknown; // the file could not be read, or not be written, when they were new
    for (const auto& item : sensors()) {
        if (!item->knowsStoredLimits()) {
            unknown.push_back(item->key().value_or(""));
        }
    }
    loadSeenLimits(std::move(unknown));
}

void SensorsStatCollectorMac::cleanup()
{
    sensorLifetime_.end();
    updateRecordedValues();
    StatCollector::cleanup();
}

} // namespace meridal
