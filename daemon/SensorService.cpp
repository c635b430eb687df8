// SPDX-License-Identifier: Apache-2.0
#include "daemon/SensorService.h"

#include "base/Runtime.h"
#include "collectors/sensors/SensorEntry.h"
#include "collectors/sensors/SensorKind.h"
#include "daemon/MeridalHistory.h"
#include "daemon/Parameters.h"
#include "history/HistoryCatalogue.h"
#include "platform/Context.h"
#include "wire/Methods.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <optional>
#include <string_view>
#include <tuple>
#include <utility>

namespace meridal {

namespace {

using Item = SensorsStatCollectorMac::Item;

constexpr const char* smcChip = "SMC";
constexpr const char* serviceChip = "HID";

std::string chipOf(const SensorsStatCollectorMac& collector, const Item& item)
{
    const SensorRecord* record = collector.recordForKey(item.key().value_or(""));
    return record ? record->chip : item.source() == Item::Source::Service ? serviceChip : smcChip;
}

/// By chip, kind and place, and the key where all that is the same: a total order, as pages need it.
auto placeOf(const SensorsStatCollectorMac& collector, const Item& item)
{
    return std::tuple(chipOf(collector, item), collector.kindOf(item), item.index(), item.key().value_or(""));
}

SensorsStatCollectorMac::SensorItems ordered(const SensorsStatCollectorMac& collector, std::optional<std::uint32_t> uid)
{
    using Place = decltype(placeOf(collector, std::declval<const Item&>()));
    std::vector<std::pair<Place, std::shared_ptr<Item>>> placed; // once each, though they are compared often
    for (auto& sensor : collector.sensorsFor(uid)) {
        Place place = placeOf(collector, *sensor);
        placed.emplace_back(std::move(place), std::move(sensor));
    }
    std::sort(
        placed.begin(), placed.end(), [](const auto& first, const auto& second) { return first.first < second.first; });
    SensorsStatCollectorMac::SensorItems sensors;
    for (auto& [place, sensor] : placed) {
        sensors.push_back(std::move(sensor));
    }
    return sensors;
}

struct Range {
    std::optional<double> low;
    std::optional<double> high;
    bool isFixed = false;
};

/// The limits that somebody has set, of which one may be missing; else what has been seen.
Range rangeOf(const SensorRecord* record, const Item& item)
{
    const SensorLimits limits = record ? record->limits : SensorLimits();
    if (limits.low || limits.high || limits.critical) {
        return {.low = limits.low, .high = limits.high ? limits.high : limits.critical, .isFixed = true};
    }
    const bool isFixed = item.hasFixedLimits() && !record;
    if (!(item.high() > item.low())) {
        return {.low = {}, .high = {}, .isFixed = isFixed};
    }
    return {.low = item.low(), .high = item.high(), .isFixed = isFixed};
}

Value describe(const SensorsStatCollectorMac& collector, const Item& item, PowerDetail detail)
{
    const bool isCoarse = detail == PowerDetail::Averaged && collector.isPower(item);
    const auto figure = [&](std::optional<double> value) -> Value {
        constexpr double digits = 1e6; // what an average has beyond them is noise
        return !value ? Value() : Value(isCoarse ? roundedPower(*value) : std::round(*value * digits) / digits);
    };
    const auto ifKnown = [](double value, bool isKnown) { return isKnown ? std::optional(value) : std::nullopt; };
    const std::int64_t kind = collector.kindOf(item);
    const SensorRecord* record = collector.recordForKey(item.key().value_or(""));
    const Range range = rangeOf(record, item);
    const std::string_view alarm = sensorAlarmName(collector.alarmOf(item));
    Value entry = Value::object();
    // In its order, which saves looking for the place: there may be hundreds of these.
    auto& fields = entry.get_ref<Value::object_t&>();
    fields.emplace_hint(fields.end(), "alarm", alarm.empty() ? Value() : Value(alarm));
    fields.emplace_hint(fields.end(), "chip", chipOf(collector, item));
    fields.emplace_hint(fields.end(), "critical", figure(record ? record->limits.critical : std::nullopt));
    fields.emplace_hint(fields.end(), "fixed", range.isFixed);
    fields.emplace_hint(fields.end(), "high", figure(range.high));
    fields.emplace_hint(fields.end(), "highest", figure(ifKnown(item.highestRecordedValue(), item.hasSeenLimits())));
    fields.emplace_hint(fields.end(), "key", item.key().value_or(""));
    fields.emplace_hint(fields.end(), "kind", sensorKindName(kind));
    fields.emplace_hint(fields.end(), "low", figure(range.low));
    fields.emplace_hint(fields.end(), "lowest", figure(ifKnown(item.lowestRecordedValue(), item.hasSeenLimits())));
    fields.emplace_hint(fields.end(), "name", collector.nameOf(item));
    fields.emplace_hint(fields.end(), "unit", sensorUnit(kind));
    fields.emplace_hint(fields.end(), "value", figure(ifKnown(item.value(), item.hasValue())));
    return entry;
}

} // namespace

SensorService::SensorService(Context& context, HistoryCatalogue& catalogue, MakeCollector make)
    : context_(context)
    , catalogue_(catalogue)
    , make_(std::move(make))
    , administrators_(context, [this](std::uint32_t uid, bool administers) { decided(uid, administers); })
{
}

SensorsStatCollectorMac& SensorService::collector()
{
    if (!collector_) {
        collector_ = &make_();
        collector_->setRecording(isRecording_);
        catalogue_.add(
            "sensors", collector_->history(), [this] { return collector_->series(); }, &collector_->recorded());
    }
    return *collector_;
}

SensorsStatCollectorMac& SensorService::asked()
{
    collector().noteQuestion();
    return collector();
}

void SensorService::open()
{
    context_.runtime.mainQueue().post(lifetime_.guard([this] { resume(); })); // once clients are served
}

std::vector<double> SensorService::sensorValues(const Value& configurations, PowerDetail detail)
{
    return asked().valuesForConfigs(configurations, detail);
}

Value SensorService::supportedElectricSensors(const Value& selection, const SensorClient& client, PowerDetail detail)
{
    Value entries = asked().supportedElectricSensors(selection);
    name(client, entries, SensorRequest::Sensors);
    if (detail == PowerDetail::Averaged) {
        collector().averagePower(entries);
    }
    return entries;
}

Value SensorService::supportedFans(const Value& selection, const SensorClient& client)
{
    Value entries = asked().supportedFans(selection);
    name(client, entries, SensorRequest::Fans);
    return entries;
}

Value SensorService::supportedArmSensors(const Value& selection, const SensorClient& client)
{
    Value entries = asked().supportedArmSensors(selection);
    name(client, configuredEntries(entries, selection), SensorRequest::Services); // the others are shown by themselves
    return entries;
}

// Who names sensors

namespace {

/// Stands beside a client for as long as it is not known whether its user administers the machine: the client may be gone by
/// then, and an administrator's wish is kept all the same.
const char undecided = 0;

} // namespace

void SensorService::name(const SensorClient& client, const Value& entries, SensorRequest request)
{
    if (client && !entries.empty()) { // of whom the system does not know nothing stays
        const auto administers = administrators_.ask(client->uid);
        if (administers && *administers) {
            collector().nameForAll(entries, request);
        } else {
            collector().nameForClient(*client, entries, request);
        }
        if (!administers) {
            collector().nameForClient({.uid = client->uid, .client = &undecided}, entries, request);
        }
    }
    collector().begin();
}

void SensorService::decided(std::uint32_t uid, bool administers)
{
    const ClientSensors::Owner owner{.uid = uid, .client = &undecided};
    if (administers) {
        collector().keepForAll(owner);
    } else {
        collector().forgetClient(owner);
    }
}

void SensorService::forget(const SensorClient& client)
{
    if (collector_ && client) {
        collector_->forgetClient(*client);
    }
}

void SensorService::addTo(MeridalHistory& history)
{
    history.addAsyncMethod(
        method::sensorsList, [this](const Value& parameters, const Peer& peer, const MeridalHistory::Reply& reply) {
            const int waits = Parameters(parameters).flag("passive") ? 0 : mostWaits;
            answer(parameters, peer.user(), powerDetailFor(peer.isRoot()), reply, waits);
        });
}

/// Soon after the start power has no average yet: the answer is worth a moment.
void SensorService::answer(const Value& parameters, std::optional<std::uint32_t> uid, PowerDetail detail,
    const std::function<void(Result<Value>)>& reply, int waits)
{
    constexpr double wait = 0.5; // s
    auto now = list(parameters, uid, detail);
    if (!now || waits == 0 || !collector().isSettling(uid)) {
        return reply(std::move(now));
    }
    context_.runtime.after(wait, lifetime_.guard([this, parameters, uid, detail, reply, waits] {
        answer(parameters, uid, detail, reply, waits - 1);
    }));
}

void SensorService::setRecording(bool recording)
{
    const bool isNews = recording != isRecording_;
    isRecording_ = recording;
    if (collector_) {
        collector_->setRecording(recording);
    }
    if (isNews && recording && isOpen_) {
        resume();
    }
}

void SensorService::resume()
{
    isOpen_ = true;
    if (isRecording_) {
        collector().discover();
    }
    std::error_code failure;
    if (std::filesystem::exists(context_.paths.support / SensorsStatCollector::databaseName, failure)) {
        collector().resumeRecord(); // without sensors there is no file, and none is made
    }
}

Result<Value> SensorService::list(const Value& given, std::optional<std::uint32_t> uid, PowerDetail detail)
{
    Parameters parameters(given);
    const auto after = parameters.text("after");
    const std::size_t limit = parameters.limit(usualPage, longestPage);
    const bool isPassive = parameters.flag("passive");
    if (!parameters.valid()) {
        return parameters.failure();
    }
    (isPassive ? collector() : asked()).discover();
    if (isPassive) {
        collector().readWhatNobodyReads();
    }
    const auto sensors = ordered(collector(), uid);
    auto next = sensors.begin();
    if (after) {
        const auto last =
            std::find_if(sensors.begin(), sensors.end(), [&](const auto& item) { return item->key() == *after; });
        if (last == sensors.end()) {
            return unexpected(ErrorCode::NotFound, "there is no sensor of the key in \"after\"");
        }
        next = last + 1;
    }
    Value page = Value::array();
    for (; next != sensors.end() && page.size() < limit; ++next) {
        page.push_back(describe(collector(), **next, detail));
    }
    return Value{{"sensors", std::move(page)}, {"more", next != sensors.end()}};
}

} // namespace meridal
