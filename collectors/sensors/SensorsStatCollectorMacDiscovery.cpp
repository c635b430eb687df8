// SPDX-License-Identifier: Apache-2.0
// The part of SensorsStatCollectorMac that finds out which sensors there are.

#include "base/Runtime.h"
#include "base/Text.h"
#include "base/Value.h"
#include "collectors/sensors/SensorEntry.h"
#include "collectors/sensors/SensorKind.h"
#include "collectors/sensors/SensorLimits.h"
#include "collectors/sensors/SensorsStatCollectorMac.h"
#include "database/HistoryDatabaseController.h"
#include "platform/Context.h"
#include "platform/PlatformController.h"
#include "platform/host/Host.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <utility>

namespace meridal {

namespace {

const Value* configurationOf(const Value& configurations, std::string_view key)
{
    for (const Value& configuration : sensorList(configurations)) {
        const Value* entry = find(configuration, "key");
        if (entry && entry->is_string() && entry->get_ref<const std::string&>() == key) {
            return &configuration;
        }
    }
    return nullptr;
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

Value configurationOf(const std::string& key, const SensorRecord& record)
{
    const auto& [low, high, critical, lowCritical] = record.limits;
    Value configuration{{"key", key}, {"name", record.isNameless ? serviceName(record.label) : record.label}};
    if (low) {
        configuration["low"] = *low;
    }
    if (high || critical) {
        configuration["high"] = high ? *high : *critical;
    }
    return configuration;
}

/// An entry without a value, for which nothing has to be read.
Value entryOf(const std::string& key, const Value& configuration, bool isTemperature)
{
    const SensorConfiguration understood = parseSensorConfiguration(configuration);
    const std::int64_t kind = isTemperature ? sensorKind::temperature : understood.kind();
    Value entry = entryOf(kind, configuration, key, understood.name, 0);
    if (understood.hasFixedLimits()) {
        addLimits(entry, understood.low, understood.high);
    }
    return entry;
}

/// Whether clients may know a sensor by its name: temperatures, but for those that are only a key.
bool isService(const SensorRecord& record)
{
    return record.kind == SensorKind::Temperature && !(record.isNameless && isSMCKey(record.key));
}

/// A fan's name as clients have always got it, out of the 12 bytes that an SMC has for one: without blanks, and cut
/// between characters.
std::string fanName(const std::string& label)
{
    constexpr std::size_t longest = 12;
    std::string name;
    std::copy_if(label.begin(), label.end(), std::back_inserter(name),
        [](char c) { return static_cast<unsigned char>(c) > ' '; });
    return shortenedText(name, longest);
}

} // namespace

// Electric sensors

Value SensorsStatCollectorMac::electricEntry(const SensorConfiguration& understood, const Value& given)
{
    Value entry =
        entryOf(understood.kind(), given, understood.key, understood.name, finite(valueForKey(understood.key)));
    if (understood.hasFixedLimits()) {
        addLimits(entry, understood.low, understood.high);
    }
    return entry;
}

Value SensorsStatCollectorMac::supportedElectricSensors(const Value& configurations)
{
    startToFollow(); // a key of the host's is to be known before a client speaks of it
    const OneReading once(*this);
    Value entries = Value::array();
    for (const Value& given : sensorList(configurations)) {
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

/// What an SMC has keys for beside the speeds of fans, where the host names those: how many there are, and each one's
/// limits, 0 for one that it does not have.
std::optional<double> SensorsStatCollectorMac::fanFigure(const std::string& key) const
{
    if (!key.starts_with('F') || (named_.empty() && !platform_.fauxMac())) {
        return std::nullopt;
    }
    const std::string_view what = std::string_view(key).substr(1);
    if (what.starts_with("Num")) {
        std::size_t count = 0;
        for (std::size_t fan = 0; fan < SensorKeyTable::fanNumbers; ++fan) {
            count = recordForKey(fmt::format("F{:X}Ac", fan)) ? fan + 1 : count;
        }
        return static_cast<double>(count);
    }
    const std::string_view limit = what.substr(std::min<std::size_t>(1, what.size()), 2);
    const auto fan = limit == "Mn" || limit == "Mx" ? named_.find(key.substr(0, 2) + "Ac") : named_.end();
    if (fan == named_.end()) {
        return std::nullopt;
    }
    return (limit == "Mn" ? fan->second.told.low : fan->second.told.high).value_or(0);
}

std::optional<Value> SensorsStatCollectorMac::fanEntry(std::size_t fan, const Value& configurations)
{
    const std::string prefix = fmt::format("F{:X}", fan);
    const std::string key = prefix + "Ac";
    const double speed = finite(valueForKey(key));
    const Value* configuration = configurationOf(configurations, key);
    std::string name;
    double low = 0;
    if (platform_.fauxMac()) { // whose fans the host names
        const SensorRecord* record = recordForKey(key);
        name = record ? fanName(record->label) : "";
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
    startToFollow();
    Value entries = Value::array();
    const float count = valueForSensorKey("FNum");
    for (std::size_t fan = 0; fan < SensorKeyTable::fanNumbers && static_cast<float>(fan) < count; ++fan) {
        if (auto entry = fanEntry(fan, configurations)) {
            entries.push_back(std::move(*entry));
        }
    }
    return entries;
}

// Sensor services

const SensorsStatCollectorMac::Service* SensorsStatCollectorMac::serviceNamed(const std::string& name) const
{
    const auto found =
        std::find_if(services_.begin(), services_.end(), [&](const Service& each) { return each.name == name; });
    return found != services_.end() ? &*found : nullptr;
}

Value SensorsStatCollectorMac::supportedArmSensors(const Value& configurations)
{
    startToFollow();
    const OneReading once(*this);
    std::vector<std::string> sources;
    std::transform(services_.begin(), services_.end(), std::back_inserter(sources),
        [](const Service& service) { return service.source; });
    readAhead(sources);
    Value entries = Value::array();
    for (const Service& service : services_) {
        const Value* configuration = configurationOf(configurations, service.name);
        const auto value = readSource(service.source).value;
        if (!value || (service.isMean && !configuration)) { // a mean is for those who know it
            continue;
        }
        std::string name = serviceName(service.label);
        if (configuration) {
            name = text(*configuration, "name").value_or(name);
        }
        Value entry = entryOf(sensorKind::temperature,
            configuration ? *configuration : Value{{"key", service.name}, {"name", name}}, service.name, name, *value);
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
    if (finder != Finder::Host && !sensorList(entries).empty()) {
        startToFollow();
    }
    std::vector<std::string> fresh;
    std::int64_t index = 0;
    for (const Value& entry : sensorList(entries)) {
        const std::string key = text(entry, "key").value_or("");
        auto item = std::static_pointer_cast<Item>(itemWithKey(key));
        const std::size_t most = finder == Finder::Host ? 2 * mostItems : mostItems;
        const bool isKnownBetter =
            (finder != Finder::Host && named_.contains(key)) || (finder == Finder::Record && item && item->isClients());
        if (isKnownBetter || (finder != Finder::Host && makesTooManyKeys(entry))) {
            continue;
        }
        if (key.empty() || key.size() > longestSensorName || (!item && items().size() >= most)) {
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
        const SensorConfiguration before = item->sensorConfig();
        takeSensorEntry(*item, entry, index++);
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
    const OneReading once(*this);
    SensorItems made;
    for (const std::string& key : fresh) {
        made.push_back(std::static_pointer_cast<Item>(itemWithKey(key)));
    }
    readAhead(made);
    for (const auto& item : made) {
        sample(*item, now, Sampling::Asked); // who asked sees a value at once
    }
    loadSeenLimits(std::move(fresh));
}

void SensorsStatCollectorMac::nameForAll(const Value& entries, SensorRequest request)
{
    process(entries, request, Finder::Client);
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
        const bool isProven = !item || item->hasRecorded() || named_.contains(each->first);
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
    if (!history().isRecording()) {
        return;
    }
    auto adopt = sensorLifetime_.guard([this](KeptSensors kept) { resume(std::move(kept)); });
    Queue& mainQueue = context().runtime.mainQueue();
    file->queryDatabaseAsync([adopt, &mainQueue](SQLiteConnection& connection) {
        mainQueue.post([adopt, kept = readKeptSensors(connection, mostItems)]() mutable { adopt(kept); });
    });
}

/// Whether a kept configuration only repeats what the host tells of a sensor by itself: earlier versions kept one of each
/// temperature when a client asked for them all, and showed them twice from then on.
bool SensorsStatCollectorMac::isDouble(const Value& kept)
{
    const SensorConfiguration configuration = parseSensorConfiguration(kept);
    const Service* service = serviceNamed(configuration.key);
    return service && configuration.name == serviceName(service->label) && !configuration.hasFixedLimits()
        && std::any_of(named_.begin(), named_.end(),
            [service](const auto& each) { return each.second.record.key == service->source; });
}

void SensorsStatCollectorMac::resume(KeptSensors kept)
{
    startToFollow();
    process(supportedElectricSensors(kept.sensors), SensorRequest::Sensors, Finder::Record);
    if (!kept.fans.empty()) {
        process(supportedFans(kept.fans), SensorRequest::Fans, Finder::Record);
    }
    Value services = Value::array();
    for (Value& configuration : kept.services) {
        if (!isDouble(configuration)) {
            services.push_back(std::move(configuration));
        } else if (const auto file = database()) {
            file->addItem({.table = keptSensorsTable().table,
                .format = forgetSensor,
                .args = {text(configuration, "key").value_or("")}});
        }
    }
    if (!services.empty()) {
        process(configuredEntries(supportedArmSensors(services), services), SensorRequest::Services, Finder::Record);
    }
    begin();
}

// What the host tells by itself

void SensorsStatCollectorMac::adopt(std::vector<SensorRecord> records)
{
    updateRecordedValues(); // of those that go now, while it is known what they are
    const std::vector<std::string> keys = keys_.keysFor(records);
    if (keys_.save()) {
        context().host.limitations->clear("sensor-keys");
    } else {
        context().host.limitations->set("sensor-keys", "the keys of sensors cannot be written to the state folder");
    }
    const std::map<std::string, Named> before = std::exchange(named_, {});
    adoptServices(records, keys);
    Value sensors = Value::array();
    Value services = Value::array();
    Value fans = Value::array();
    for (std::size_t index = 0; index < records.size(); ++index) {
        SensorRecord& record = records[index];
        const std::string& key = keys[index];
        if (key.empty() || (record.isNameless && itemWithKey(key))) { // somebody may know better by now
            continue;
        }
        const SensorLimits told = record.limits;
        const SensorFlags meaningless = dropUnsetLimits(record);
        Value configuration = configurationOf(key, record);
        if (record.kind == SensorKind::Fan) {
            fans.push_back(std::move(configuration));
        } else {
            const bool isOnlyService = record.isNameless && isService(record);
            (isOnlyService ? services : sensors).push_back(entryOf(key, configuration, isOnlyService));
        }
        if (!record.isNameless) {
            named_.emplace(key, Named{.record = std::move(record), .told = told, .meaningless = meaningless});
        }
    }
    for (const auto& known : before) {
        if (const auto item = named_.contains(known.first) ? nullptr : itemWithKey(known.first)) {
            item->setExists(false);
        }
    }
    removeOldItems();
    process(sensors, SensorRequest::Sensors, Finder::Host);
    process(services, SensorRequest::Services, Finder::Host);
    process(supportedFans(fans), SensorRequest::Fans, Finder::Host);
}

/// Of several with one name the chip tells them apart; of those that it does not a client could not tell which it means.
void SensorsStatCollectorMac::adoptServices(
    const std::vector<SensorRecord>& records, const std::vector<std::string>& keys)
{
    const auto called = [](const SensorRecord& each) { return each.isNameless ? each.channel : each.label; };
    std::map<std::string, int> names;
    for (std::size_t index = 0; index < records.size(); ++index) {
        names[called(records[index])] += !keys[index].empty() && isService(records[index]) ? 1 : 0;
    }
    services_.clear();
    for (std::size_t index = 0; index < records.size(); ++index) {
        const SensorRecord& record = records[index];
        std::string name = called(record);
        if (keys[index].empty() || !isService(record)) {
            continue;
        }
        if (names[name] > 1) {
            name += " (" + record.chip + ")";
        }
        if (!serviceNamed(name)) {
            services_.push_back({.name = name,
                .source = record.key,
                .label = record.isNameless ? record.label : name,
                .isMean = record.isMean,
                .disturbs = record.disturbs});
        }
    }
}

void SensorsStatCollectorMac::follow()
{
    const double now = context().runtime.monotonicTime();
    if (!follows_ || now < nextLook_) {
        return;
    }
    nextLook_ = now + lookInterval;
    // Before the sensors: what changes between the two is seen at the next look.
    const std::uint64_t generation = source_.generation();
    if (generation != generation_) {
        generation_ = generation;
        adopt(source_.sensors());
    }
}

void SensorsStatCollectorMac::startToFollow()
{
    if (!std::exchange(follows_, true)) {
        generation_ = source_.generation() - 1; // whatever it is, it is new
    }
    follow();
}

void SensorsStatCollectorMac::discover()
{
    startToFollow();
    begin();
    const bool isNeeded = history().isRecording() || isAsked();
    if (isNeeded && !isLogging_ && !stopped()
        && !std::exchange(looksLater_, true)) { // the clock, once it runs, looks by itself
        const bool isWatched = isAsked() || !items().empty();
        context().runtime.after(isWatched ? lookInterval : emptyInterval, sensorLifetime_.guard([this] {
            looksLater_ = false;
            discover();
        }));
    }
}

} // namespace meridal
