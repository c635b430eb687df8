#include "daemon/SensorsKeeper.h"

#include "base/Runtime.h"
#include "collectors/HistoryCatalogue.h"
#include "collectors/sensors/SensorKind.h"
#include "daemon/CollectorPorts.h"
#include "daemon/MeridalHistory.h"
#include "daemon/Parameters.h"
#include "platform/Context.h"

#include <algorithm>
#include <filesystem>
#include <tuple>
#include <utility>

namespace meridal {

namespace {

using Item = SensorsStatCollectorMac::Item;

constexpr const char* smcChip = "SMC";
constexpr const char* serviceChip = "HID";

std::string chipOf(const SensorsStatCollectorMac& collector, const Item& item)
{
    const SensorChannel* channel = collector.channelForKey(item.key().value_or(""));
    return channel ? channel->chip : item.source() == Item::Source::Service ? serviceChip : smcChip;
}

std::string nameOf(const SensorsStatCollectorMac& collector, const Item& item)
{
    const SensorChannel* channel = collector.channelForKey(item.key().value_or(""));
    return channel ? channel->label : item.name().empty() ? item.key().value_or("") : item.name();
}

/// By chip, kind and place, and the key where all that is the same: a total order, as pages need it.
auto placeOf(const SensorsStatCollectorMac& collector, const Item& item)
{
    return std::tuple(chipOf(collector, item), collector.kindOf(item), item.index(), item.key().value_or(""));
}

SensorsStatCollectorMac::SensorItems ordered(const SensorsStatCollectorMac& collector)
{
    auto sensors = collector.sensors();
    std::sort(sensors.begin(), sensors.end(), [&](const auto& first, const auto& second) {
        return placeOf(collector, *first) < placeOf(collector, *second);
    });
    return sensors;
}

Value describe(const SensorsStatCollectorMac& collector, const Item& item, PowerDetail detail)
{
    const bool isCoarse = detail == PowerDetail::Averaged && collector.isPower(item);
    const auto figure = [&](double value, bool isKnown) -> Value {
        return !isKnown ? Value() : Value(isCoarse ? roundedPower(value) : value);
    };
    const std::int64_t kind = collector.kindOf(item);
    const bool hasSeen = item.lowestRecordedValue() != -1 || item.highestRecordedValue() > 0;
    const bool hasRange = item.high() > item.low();
    const SensorChannel* channel = collector.channelForKey(item.key().value_or(""));
    const auto critical = channel ? channel->critical : std::nullopt;
    return {{"key", item.key().value_or("")}, {"chip", chipOf(collector, item)}, {"name", nameOf(collector, item)},
        {"kind", sensorKindName(kind)}, {"unit", sensorUnit(kind)}, {"value", figure(item.value(), item.hasValue())},
        {"low", figure(item.low(), hasRange)}, {"high", figure(item.high(), hasRange)},
        {"fixed", item.hasFixedLimits()}, {"critical", figure(critical.value_or(0), critical.has_value())},
        {"lowest", figure(item.lowestRecordedValue(), hasSeen)},
        {"highest", figure(item.highestRecordedValue(), hasSeen)}};
}

/// What the catalogue of history says of the sensors.
std::vector<HistorySeries> describeSeries(const SensorsStatCollectorMac& collector)
{
    std::vector<HistorySeries> series;
    for (const auto& item : collector.sensors()) {
        series.push_back({.key = item->key().value_or(""),
            .name = nameOf(collector, *item),
            .unit = std::string(sensorUnit(collector.kindOf(*item))),
            .values = {"value"},
            .step = collector.isPower(*item) ? powerStep : 0});
    }
    return series;
}

} // namespace

SensorsKeeper::SensorsKeeper(
    Context& context, HistoryCatalogue& catalogue, std::function<void()> openSMC, MakeCollector make)
    : context_(context), catalogue_(catalogue), openSMC_(std::move(openSMC)), make_(std::move(make))
{
}

SensorsStatCollectorMac& SensorsKeeper::collector()
{
    if (!collector_) {
        collector_ = &make_();
        catalogue_.add("sensors", *collector_, [this] { return describeSeries(*collector_); });
    }
    return *collector_;
}

void SensorsKeeper::plugInto(CollectorPorts& ports)
{
    ports.openSensors = [this] {
        openSMC_();
        context_.runtime.mainQueue().post(lifetime_.guard([this] { resume(); })); // once clients are served
    };
    ports.valueForConfig = [this](const Value& configuration, PowerDetail detail) {
        return collector().valueForConfig(configuration, detail);
    };
    ports.supportedElectricSensors = [this](const Value& selection, PowerDetail detail) {
        Value entries = collector().supportedElectricSensors(selection);
        collector().processSensors(entries);
        collector().begin();
        if (detail == PowerDetail::Averaged) {
            collector().averagePower(entries);
        }
        return entries;
    };
    ports.supportedFans = [this](const Value& selection) {
        Value entries = collector().supportedFans(selection);
        collector().processFans(entries);
        collector().begin();
        return entries;
    };
    ports.supportedArmSensors = [this](const Value& selection) {
        Value entries = collector().supportedArmSensors(selection);
        collector().processArmSensors(entries);
        collector().begin();
        return entries;
    };
}

void SensorsKeeper::addTo(MeridalHistory& history)
{
    history.addAsyncMethod(
        "sensors.list", [this](const Value& parameters, const Peer& peer, const MeridalHistory::Reply& reply) {
            reply(list(parameters, powerDetailFor(peer.known && peer.uid == 0)));
        });
}

/// The file of the record tells that somebody once asked for sensors on this machine.
void SensorsKeeper::resume()
{
    std::error_code failure;
    if (std::filesystem::exists(context_.paths.support / SensorsStatCollector::databaseName, failure)) {
        collector().discover();
        collector().resumeClientSensors();
    }
}

Result<Value> SensorsKeeper::list(const Value& given, PowerDetail detail)
{
    Parameters parameters(given);
    const auto after = parameters.text("after");
    const std::size_t limit = parameters.limit(usualPage, longestPage);
    if (!parameters.valid()) {
        return parameters.failure();
    }
    collector().discover();
    const auto sensors = ordered(collector());
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
