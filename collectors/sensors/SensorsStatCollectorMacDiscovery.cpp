// The part of SensorsStatCollectorMac that finds out which sensors there are.

#include "base/Runtime.h"
#include "base/Text.h"
#include "base/Value.h"
#include "collectors/sensors/SMCSensorKeys.h"
#include "collectors/sensors/SensorKind.h"
#include "collectors/sensors/SensorLimits.h"
#include "collectors/sensors/SensorsARMController.h"
#include "collectors/sensors/SensorsStatCollectorMac.h"
#include "database/HistoryDatabaseController.h"
#include "platform/Context.h"
#include "platform/PlatformController.h"
#include "platform/host/Host.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <set>
#include <utility>

namespace meridal {

namespace {

/// A fan's keys hold its number as one hexadecimal digit.
constexpr std::size_t mostFans = 16;

/// Names and keys are kept for as long as the item lives: what is longer than this is cut, or is no key.
constexpr std::size_t longestName = 256; // bytes

/// What averages of sensor services are called where no client names them.
constexpr std::array<const char*, armAverages.size()> averageNames = {
    "SoC die", "Efficiency cores", "Performance cores", "Power manager die", "Power manager SoC die"};

/// The client's configurations; what is no array holds none.
const Value& listOf(const Value& configurations)
{
    static const Value none = Value::array();
    return configurations.is_array() ? configurations : none;
}

const Value* configurationOf(const Value& configurations, std::string_view key)
{
    for (const Value& configuration : listOf(configurations)) {
        const Value* entry = find(configuration, "key");
        if (entry && entry->is_string() && entry->get_ref<const std::string&>() == key) {
            return &configuration;
        }
    }
    return nullptr;
}

std::string shortened(const std::string& name)
{
    if (name.size() <= longestName) {
        return name;
    }
    std::size_t end = longestName;
    while (end > 0 && (static_cast<unsigned char>(name[end]) & 0xC0U) == 0x80U) {
        --end; // not in the midst of a character
    }
    return name.substr(0, end);
}

Value entryOf(std::int64_t type, Value configuration, const std::string& key, const std::string& name, double value)
{
    return {{"type", type}, {"config", std::move(configuration)}, {"key", key}, {"name", name}, {"value", value}};
}

void addLimits(Value& entry, double low, double high)
{
    entry["low"] = finite(low);
    entry["high"] = finite(high);
}

/// What is left of a service's name for people.
std::string serviceName(const std::string& product)
{
    constexpr std::string_view noise = "Temp Sensor";
    std::string name = product;
    for (auto at = name.find(noise); at != std::string::npos; at = name.find(noise)) {
        name.erase(at, noise.size());
    }
    const auto first = name.find_first_not_of(' ');
    const auto last = name.find_last_not_of(' ');
    return first == std::string::npos ? product : name.substr(first, last - first + 1);
}

Value configurationOf(const SensorChannel& channel)
{
    Value configuration{{"key", channel.key}, {"name", channel.label}};
    if (channel.low) {
        configuration["low"] = *channel.low;
    }
    if (const auto high = channel.high ? channel.high : channel.critical) {
        configuration["high"] = *high;
    }
    return configuration;
}

/// Whether a sensor is made of more keys than are sampled for one.
bool hasTooManyKeys(const Value& entry)
{
    const Value* given = find(entry, "config");
    const SensorConfiguration configuration = parseSensorConfiguration(given ? *given : Value());
    return (configuration.multiply && configuration.multiply->size() > mostSampledKeys)
        || (configuration.average && configuration.average->size() > mostSampledKeys);
}

/// Brings an item up to date with its entry.
void take(SensorStatCollectorItemMac& item, const Value& entry, std::int64_t index)
{
    const Value* given = find(entry, "config");
    SensorConfiguration configuration = parseSensorConfiguration(given ? *given : Value());
    configuration.key = item.key().value_or("");
    configuration.name = shortened(text(entry, "name").value_or(configuration.name));
    item.setName(configuration.name);
    item.setType(integer(entry, "type").value_or(configuration.kind()));
    item.setIndex(index);
    const auto high = number(entry, "high");
    item.setHasFixedLimits(high && *high > 0);
    if (item.hasFixedLimits()) {
        item.setHigh(*high);
        item.setLow(number(entry, "low").value_or(0));
    }
    item.setSensorConfig(std::move(configuration));
    item.updateLimits();
    item.updatePercentage();
}

} // namespace

// Electric sensors

Value SensorsStatCollectorMac::electricEntry(const SensorConfiguration& understood, const Value& given)
{
    Value entry =
        entryOf(understood.kind(), given, understood.key, understood.name, finite(readingOf(understood.key).value));
    if (understood.hasFixedLimits()) {
        // Through a float, as clients have always got them.
        addLimits(entry, static_cast<float>(understood.low), static_cast<float>(understood.high));
    }
    return entry;
}

Value SensorsStatCollectorMac::supportedElectricSensors(const Value& configurations)
{
    const OneReading once(*this);
    Value entries = Value::array();
    for (const Value& given : listOf(configurations)) {
        const SensorConfiguration understood = parseSensorConfiguration(given);
        if (!isSMCKey(understood.key) || understood.key.front() == 'F') { // fans are found by themselves
            continue;
        }
        bool isSupported = true;
        if (understood.multiply) {
            isSupported = std::all_of(understood.multiply->begin(), understood.multiply->end(),
                [this](const std::string& key) { return isThere(key); });
        } else if (!understood.average) {
            isSupported = isThere(understood.key);
        }
        if (isSupported) {
            entries.push_back(electricEntry(understood, given));
        }
    }
    return entries;
}

// Fans

float SensorsStatCollectorMac::minimumForFan(const std::string& prefix) { return valueForSensorKey(prefix + "Mn"); }

float SensorsStatCollectorMac::maximumForFan(const std::string& prefix) { return valueForSensorKey(prefix + "Mx"); }

/// An emulated SMC keeps a fan's name among its bytes.
std::string SensorsStatCollectorMac::fanNameFromID(const std::string& prefix)
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

std::optional<Value> SensorsStatCollectorMac::fanEntry(std::size_t fan, const Value& configurations)
{
    const std::string prefix = fmt::format("F{:X}", fan);
    const std::string key = prefix + "Ac";
    const double speed = finite(readingOf(key).value);
    const Value* configuration = configurationOf(configurations, key);
    std::string name;
    double low = 0;
    if (origin_ == SMCOrigin::Emulated) {
        name = fanNameFromID(prefix);
        if (name.empty()) {
            return std::nullopt;
        }
        low = minimumForFan(prefix);
    } else if (configuration) {
        name = text(*configuration, "name").value_or("");
        low = number(*configuration, "low").value_or(0);
    } else {
        return std::nullopt;
    }
    Value entry = entryOf(
        sensorKind::fan, configuration ? *configuration : Value{{"key", key}, {"name", name}}, key, name, speed);
    addLimits(entry, low, maximumForFan(prefix));
    return entry;
}

Value SensorsStatCollectorMac::supportedFans(const Value& configurations)
{
    Value entries = Value::array();
    const float count = valueForSensorKey("FNum");
    for (std::size_t fan = 0; fan < mostFans && static_cast<float>(fan) < count; ++fan) {
        if (auto entry = fanEntry(fan, configurations)) {
            entries.push_back(std::move(*entry));
        }
    }
    return entries;
}

// Sensor services

Value SensorsStatCollectorMac::supportedArmSensors(const Value& configurations)
{
    Value entries = Value::array();
    std::set<std::string> seen;
    for (const Value& reading : arm_.sensors()) {
        const std::string key = text(reading, "key").value_or("");
        const double value = number(reading, "value").value_or(0);
        const Value* configuration = configurationOf(configurations, key);
        const bool isAverage = std::any_of(
            armAverages.begin(), armAverages.end(), [&](const ARMAverage& average) { return average.key == key; });
        // An average of nothing is 0. Of two services of one name a client could not tell which it means.
        if ((isAverage && (!configuration || value == 0)) || !seen.insert(key).second) {
            continue;
        }
        std::string name = serviceName(key);
        if (configuration) {
            name = text(*configuration, "name").value_or(name);
        }
        Value entry = entryOf(sensorKind::temperature,
            configuration ? *configuration : Value{{"key", key}, {"name", name}}, key, name, value);
        const SensorConfiguration understood = parseSensorConfiguration(configuration ? *configuration : Value());
        if (understood.hasFixedLimits()) {
            addLimits(entry, understood.low, understood.high);
        }
        entries.push_back(std::move(entry));
    }
    return entries;
}

void SensorsStatCollectorMac::averagePower(Value& entries)
{
    const OneReading once(*this);
    for (Value& entry : entries) {
        const Value* configuration = find(entry, "config");
        SensorConfiguration understood = parseSensorConfiguration(configuration ? *configuration : Value());
        // The value of an entry is that of its key, whatever else the configuration computes.
        understood.multiply.reset();
        understood.average.reset();
        understood.key = text(entry, "key").value_or("");
        if (isPower(understood)) {
            entry["value"] = averagedPower(understood);
        }
    }
}

// Entries into items

void SensorsStatCollectorMac::process(const Value& entries, SensorRequest request, Finder finder)
{
    if (finder != Finder::Host && !listOf(entries).empty()) {
        startToFollowChannels(); // a key of the host's is to be known before a client speaks of it
    }
    std::vector<std::string> fresh;
    ServiceValues values;
    std::int64_t index = 0;
    for (const Value& entry : listOf(entries)) {
        const std::string key = text(entry, "key").value_or("");
        auto item = std::static_pointer_cast<Item>(itemWithKey(key));
        const std::size_t most = finder == Finder::Host ? 2 * mostItems : mostItems;
        const bool isKnownBetter = (finder != Finder::Host && channels_.contains(key))
            || (finder == Finder::Record && item && item->isClients());
        if (isKnownBetter || (finder != Finder::Host && hasTooManyKeys(entry))) {
            continue;
        }
        if (key.empty() || key.size() > longestName || (!item && items().size() >= most)) {
            continue;
        }
        if (!item) {
            item = std::static_pointer_cast<Item>(newItemWithKey(key));
            item->loadAlternateKey();
            item->setSamples(history().item(key));
            fresh.push_back(key);
            if (finder != Finder::Host) {
                unproven_.insert_or_assign(key, context().runtime.monotonicTime());
            }
        }
        item->setExists(true);
        item->setSource(request == SensorRequest::Services ? Item::Source::Service : Item::Source::SMC);
        values[key] = number(entry, "value").value_or(0);
        const SensorConfiguration before = item->sensorConfig();
        take(*item, entry, index++);
        const bool wasClients = item->isClients();
        item->setIsClients(finder == Finder::Client);
        if (finder == Finder::Client && (!wasClients || before != item->sensorConfig())) {
            keep(*item, request);
        }
    }
    if (fresh.empty()) {
        return;
    }
    setChildrenChanged(true);
    const double now = context().runtime.monotonicTime();
    for (const std::string& key : fresh) {
        sample(static_cast<Item&>(*itemWithKey(key)), values, now); // whoever asked sees a value at once
    }
    loadSeenLimits(std::move(fresh));
}

void SensorsStatCollectorMac::processSensors(const Value& entries)
{
    process(entries, SensorRequest::Sensors, Finder::Client);
}

void SensorsStatCollectorMac::processFans(const Value& entries)
{
    process(entries, SensorRequest::Fans, Finder::Client);
}

void SensorsStatCollectorMac::processArmSensors(const Value& entries)
{
    process(entries, SensorRequest::Services, Finder::Client);
}

void SensorsStatCollectorMac::keep(const Item& item, SensorRequest request)
{
    prepareDatabase();
    if (const auto file = database()) {
        file->addItem({.table = keptSensorsTable().table,
            .format = keepSensor,
            .args = {item.key().value_or(""), static_cast<std::int64_t>(request), keptForm(item.sensorConfig())}});
    }
}

/// Lets go of what clients made up: sensors that have had no value for an hour since they were asked for.
void SensorsStatCollectorMac::dropUnproven()
{
    const double now = context().runtime.monotonicTime();
    bool isAnyDropped = false;
    for (auto each = unproven_.begin(); each != unproven_.end();) {
        const auto item = sensorWithKey(each->first);
        const bool isProven = !item || item->hasRecorded() || channels_.contains(each->first);
        if (!isProven && now - each->second <= unprovenFor) {
            ++each;
            continue;
        }
        if (!isProven) {
            item->setExists(false);
            isAnyDropped = true;
            if (const auto file = database()) {
                file->addItem({.table = keptSensorsTable().table, .format = forgetSensor, .args = {each->first}});
                file->addItem(
                    {.table = sensorLimitsTable().table, .format = removeEmptySensorLimits, .args = {each->first}});
            }
        }
        each = unproven_.erase(each);
    }
    if (isAnyDropped) {
        removeOldItems();
        setChildrenChanged(true);
    }
}

void SensorsStatCollectorMac::resumeRecord()
{
    prepareDatabase();
    const auto file = database();
    if (!file) {
        return;
    }
    recorded_.load(*file);
    auto adopt = sensorLifetime_.guard([this](const KeptSensors& kept) {
        process(supportedElectricSensors(kept.sensors), SensorRequest::Sensors, Finder::Record);
        if (!kept.fans.empty()) {
            process(supportedFans(kept.fans), SensorRequest::Fans, Finder::Record);
        }
        if (!kept.services.empty()) {
            process(supportedArmSensors(kept.services), SensorRequest::Services, Finder::Record);
        }
        begin();
    });
    Queue& mainQueue = context().runtime.mainQueue();
    file->queryDatabaseAsync([adopt, &mainQueue](SQLiteConnection& connection) {
        mainQueue.post([adopt, kept = readKeptSensors(connection, mostItems)]() mutable { adopt(kept); });
    });
}

// What the host tells by itself

void SensorsStatCollectorMac::adoptChannels(std::vector<SensorChannel> channels)
{
    updateRecordedValues(); // of those that go now, while it is known what they are
    std::map<std::string, SensorChannel> before = std::exchange(channels_, {});
    meaninglessFlags_.clear();
    Value sensors = Value::array(); // entries without a value, which nothing has to be read for
    Value fans = Value::array();
    for (SensorChannel& channel : channels) {
        const std::string key = channel.key;
        meaninglessFlags_.insert_or_assign(key, dropUnsetLimits(channel));
        Value configuration = configurationOf(channel);
        if (channel.kind == SensorChannelKind::Fan) {
            fans.push_back(std::move(configuration));
        } else {
            const SensorConfiguration understood = parseSensorConfiguration(configuration);
            Value entry = entryOf(understood.kind(), std::move(configuration), key, channel.label, 0);
            if (understood.hasFixedLimits()) {
                addLimits(entry, understood.low, understood.high);
            }
            sensors.push_back(std::move(entry));
        }
        channels_.insert_or_assign(key, std::move(channel));
    }
    for (const auto& known : before) {
        if (const auto item = channels_.contains(known.first) ? nullptr : itemWithKey(known.first)) {
            item->setExists(false);
        }
    }
    removeOldItems();
    process(sensors, SensorRequest::Sensors, Finder::Host);
    process(supportedFans(fans), SensorRequest::Fans, Finder::Host);
}

void SensorsStatCollectorMac::discoverWithoutChannels()
{
    Value averages = Value::array();
    for (std::size_t index = 0; index < armAverages.size(); ++index) {
        averages.push_back({{"key", armAverages[index].key}, {"name", averageNames[index]}});
    }
    const Value services = supportedArmSensors(averages);
    process(services, SensorRequest::Services, Finder::Host);
    if (services.empty() && origin_ == SMCOrigin::Own && !std::exchange(hasListedKeys_, true)) {
        Value named = Value::array(); // by their keys, until a client knows better
        for (const std::string& key : sensorKeysByLooks(smc_, origin_)) {
            named.push_back({{"key", key}, {"name", key}});
        }
        process(supportedElectricSensors(named), SensorRequest::Sensors, Finder::Host);
    }
    Value fans = Value::array();
    for (std::size_t fan = 0; fan < mostFans; ++fan) {
        fans.push_back({{"key", fmt::format("F{:X}Ac", fan)}, {"name", fmt::format("Fan {}", fan + 1)}});
    }
    process(supportedFans(fans), SensorRequest::Fans, Finder::Host);
}

void SensorsStatCollectorMac::followChannels()
{
    const double now = context().runtime.monotonicTime();
    if (!followsChannels_ || now < nextLook_) {
        return;
    }
    nextLook_ = now + channelInterval;
    // Before the channels: what changes between the two is seen at the next look.
    const std::uint64_t generation = context().host.sensorChannels->generation();
    if (generation != channelGeneration_) {
        channelGeneration_ = generation;
        adoptChannels(context().host.sensorChannels->channels());
    }
}

void SensorsStatCollectorMac::startToFollowChannels()
{
    if (!std::exchange(followsChannels_, true)) {
        channelGeneration_ = context().host.sensorChannels->generation() - 1; // whatever it is, it is new
    }
    followChannels();
}

void SensorsStatCollectorMac::discover()
{
    startToFollowChannels();
    if (channels_.empty() && items().empty()) {
        discoverWithoutChannels();
    }
    begin();
    if (!isLogging_ && !stopped() && !std::exchange(looksLater_, true)) { // the clock, once it runs, looks by itself
        const bool isWatched = isAsked() || !items().empty();
        context().runtime.after(isWatched ? channelInterval : emptyInterval, sensorLifetime_.guard([this] {
            looksLater_ = false;
            discover();
        }));
    }
}

} // namespace meridal
