// SPDX-License-Identifier: Apache-2.0
#include "daemon/BatteryService.h"

#include "base/Runtime.h"
#include "collectors/battery/BatteryStatCollectorMac.h"
#include "daemon/MeridalHistory.h"
#include "daemon/Parameters.h"
#include "daemon/ZAVPowerManager.h"
#include "history/HistoryCatalogue.h"
#include "platform/Context.h"
#include "platform/host/Host.h"
#include "wire/Methods.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string>
#include <string_view>
#include <utility>

namespace meridal {

namespace {

constexpr std::array<std::pair<std::string_view, BatteryFigure>, 3> figures = {
    {{"health", BatteryFigure::Health}, {"cycles", BatteryFigure::Cycles}, {"source", BatteryFigure::Source}}};

BatteryFigure figureFrom(Parameters& parameters)
{
    const std::string word = parameters.text("figure").value_or("health");
    for (const auto& [name, figure] : figures) {
        if (word == name) {
            return figure;
        }
    }
    parameters.refuse(R"("figure" must be "health", "cycles" or "source")");
    return BatteryFigure::Health;
}

BatteryQuestion batteryQuestionFrom(Parameters& parameters)
{
    BatteryQuestion question;
    question.figure = figureFrom(parameters);
    question.key = parameters.text("key");
    question.from = parameters.moment("from");
    question.until = parameters.moment("until");
    question.before = parameters.wholeNumber("before");
    question.limit = parameters.limit(question.limit, BatteryService::longestPage);
    return question;
}

Result<Value> answerFrom(BatteryFigure figure, const std::optional<BatteryAnswer>& answer)
{
    if (!answer) {
        return unexpected(ErrorCode::Unavailable, "the record of batteries cannot be read now");
    }
    Value rows = Value::array();
    for (const BatteryRow& row : answer->rows) {
        rows.push_back({{"row", row.row}, {"time", row.time}, {"key", row.key}, {"value", row.value}});
    }
    std::string name;
    for (const auto& [known, value] : figures) {
        name = value == figure ? std::string(known) : name;
    }
    return Value{{"figure", name}, {"rows", std::move(rows)}, {"more", answer->more}};
}

BatterySleepQuestion sleepQuestionFrom(Parameters& parameters)
{
    BatterySleepQuestion question;
    question.worst = parameters.flag("worst");
    question.from = parameters.moment("from");
    question.after = parameters.wholeNumber("after");
    question.limit = parameters.limit(question.limit, BatteryService::longestPage);
    return question;
}

std::optional<double> inHundredths(const std::optional<double>& figure)
{
    constexpr double hundred = 100;
    return figure ? std::optional(std::round(*figure * hundred) / hundred + 0.0) : std::nullopt; // no -0
}

Value describeSleep(const BatterySleep& sleep)
{
    Value entry = {{"row", sleep.row}, {"start", sleep.start}, {"end", sleep.end}, {"onBattery", sleep.onBattery}};
    put(entry, "chargeBefore", inHundredths(sleep.chargeBefore));
    put(entry, "chargeAfter", inHundredths(sleep.chargeAfter));
    put(entry, "energyBefore", sleep.energyBefore);
    put(entry, "energyAfter", sleep.energyAfter);
    put(entry, "percentPerHour", inHundredths(sleep.percentPerHour()));
    put(entry, "power", inHundredths(sleep.power()));
    return entry;
}

Result<Value> answerFromSleeps(const std::optional<BatterySleepAnswer>& answer)
{
    if (!answer) {
        return unexpected(ErrorCode::Unavailable, "the record of batteries cannot be read now");
    }
    Value sleeps = Value::array();
    for (const BatterySleep& sleep : answer->sleeps) {
        sleeps.push_back(describeSleep(sleep));
    }
    Value page = {{"sleeps", std::move(sleeps)}, {"more", answer->more}};
    if (answer->more) {
        page["next"] = answer->sleeps.back().row;
    }
    return page;
}

} // namespace

BatteryService::BatteryService(Context& context, BatteryStatCollectorMac& collector, ZAVPowerManager& power)
    : context_(context), collector_(collector), power_(power), record_(context)
{
    collector_.setSleptInAll([&power] { return power.sleptInAll(); });
}

BatteryService::~BatteryService() { power_.removeDelegate(*this); }

void BatteryService::prepare()
{
    collector_.prepareDatabase();
    collector_.setDisableAllBluetooth(true); // only those who ask for peripherals have them read
    record_.load();
    update();
    power_.addDelegate(*this);
    // A pack that is full, a second battery and a UPS change without the machine's source.
    sourcesObservation_ = context_.host.powerSources->observe([this] { update(); });
}

void BatteryService::update()
{
    collector_.updateStats();
    readAt_ = context_.runtime.monotonicTime();
    noteLevels();
}

// The record

void BatteryService::setRecording(bool recording)
{
    if (recording == records_) {
        return; // a reading may talk to slow firmware
    }
    records_ = recording;
    recording_.reset();
    record_.setRecording(recording);
    collector_.setRecording(recording);
    if (recording && sourcesObservation_) { // it was off when the daemon started, perhaps
        collector_.prepareDatabase();
        update();
    }
}

/// The machine's are its own batteries together, or its UPS where it has none.
void BatteryService::noteLevels()
{
    const auto own = collector_.batteriesOfType(BatteryType::Internal);
    const auto others = collector_.batteriesOfType(BatteryType::UPS);
    const auto machine = batteryLevel(own.empty() ? others : own);
    record_.begin();
    if (!machine) {
        return;
    }
    record_.note("", own.empty() ? "UPS" : "Battery", *machine);
    moves_ = machine->moves;
    for (const auto* list : {&own, &others}) {
        for (const BatteryStatCollectorItem* each : *list) {
            if (own.size() + others.size() > 1) {
                record_.note(each->key().value_or(""), each->name(), *batteryLevel({each}));
            }
        }
    }
    if (records_ && !recording_) {
        recording_ = context_.runtime.startTimer(context_.runtime.mainQueue(),
            {.first = recordInterval, .interval = recordInterval, .leeway = recordInterval / 10, .onGrid = true},
            [this] { record(); });
    }
}

void BatteryService::record()
{
    updateIfOld();
    record_.tick();
}

void BatteryService::updateIfOld()
{
    const double age = context_.runtime.monotonicTime() - readAt_;
    if (age >= (moves_ ? movingInterval : restInterval)) {
        update();
    }
}

std::optional<BatteryLevel> BatteryService::ownLevel() const
{
    return batteryLevel(collector_.batteriesOfType(BatteryType::Internal));
}

void BatteryService::powerManagerWillSleep()
{
    sleep_ ? finishSleep() : update();
    fellAsleep_ = context_.runtime.wallTime();
    beforeSleep_ = ownLevel();
}

/// Sleep is what the kernel counts; one that was called off has cost nothing.
void BatteryService::powerManagerDidWake()
{
    const auto before = std::exchange(beforeSleep_, std::nullopt);
    update();
    const auto after = ownLevel();
    if (!records_ || !before || !after || power_.lastSleep() <= 0 || before->keys != after->keys) {
        return; // also where a battery was changed meanwhile
    }
    sleep_ = BatterySleep{.start = fellAsleep_,
        .end = fellAsleep_ + power_.lastSleep(),
        .onBattery = before->onBattery && after->onBattery,
        .chargeBefore = before->exactCharge,
        .chargeAfter = after->exactCharge,
        .energyBefore = before->energy,
        .energyAfter = after->energy};
    settling_ = context_.runtime.startTimer(
        context_.runtime.mainQueue(), {.first = settleTime, .leeway = 1}, [this] { finishSleep(); });
}

/// The first reading after a wake may still be that of before; a later one may have been charged.
void BatteryService::finishSleep()
{
    settling_.reset();
    update();
    auto sleep = std::exchange(sleep_, std::nullopt);
    if (const auto now = ownLevel(); sleep && now) {
        const auto lower = [](std::optional<double>& figure, const std::optional<double>& later) {
            figure = figure && later ? std::optional(std::min(*figure, *later)) : figure;
        };
        lower(sleep->chargeAfter, now->exactCharge);
        lower(sleep->energyAfter, now->energy);
    }
    if (sleep) {
        collector_.saveSleep(*sleep);
    }
}

// Questions

void BatteryService::addTo(MeridalHistory& methods, HistoryCatalogue& catalogue)
{
    record_.addTo(catalogue);
    methods.addAsyncMethod(
        method::batteryState, [this](const Value& parameters, const Peer&, MeridalHistory::Reply reply) {
            state(parameters, std::move(reply));
        });
    methods.addAsyncMethod(
        method::batteryHistory, [this](const Value& parameters, const Peer&, MeridalHistory::Reply reply) {
            history(parameters, std::move(reply));
        });
    methods.addAsyncMethod(
        method::batterySleeps, [this](const Value& parameters, const Peer&, MeridalHistory::Reply reply) {
            sleeps(parameters, std::move(reply));
        });
}

std::optional<Dictionary> BatteryService::internalBattery() const
{
    const auto battery = collector_.internalBattery();
    if (!battery) {
        return std::nullopt;
    }
    return Dictionary{{"key", battery->key().value_or("")}, {"source", static_cast<int>(battery->source())},
        {"time", battery->sourceTime()}, {"sleep", power_.sleepTotal()}};
}

void BatteryService::updateForClient()
{
    const double now = context_.runtime.monotonicTime();
    if (lastAsked_ && now - *lastAsked_ < shortestInterval) {
        return;
    }
    lastAsked_ = now;
    collector_.setDisableAllBluetooth(false);
    update();
    collector_.setDisableAllBluetooth(true);
}

void BatteryService::state(const Value& given, std::function<void(Result<Value>)> reply)
{
    Parameters parameters(given);
    const bool isPassive = parameters.flag("passive");
    if (!parameters.valid()) {
        return reply(parameters.failure());
    }
    if (isPassive) {
        updateIfOld();
        return reply(describeAll());
    }
    updateForClient();
    // A source that answers something new tells its observers, so that the collector has it by then.
    context_.host.powerSources->refresh(lifetime_.guard([this, reply = std::move(reply)] {
        collector_.whenPeripheralsKnown([this, reply] { reply(describeAll()); });
    }));
}

Value BatteryService::describeAll() const
{
    Value batteries = Value::array();
    Value peripherals = Value::array();
    for (const auto& each : collector_.items()) {
        const auto& battery = static_cast<const BatteryStatCollectorItem&>(*each);
        (battery.isPeripheral() ? peripherals : batteries).push_back(battery.describe(power_.sleptInAll()));
    }
    const auto primary = collector_.primaryBattery();
    Value answer = {{"batteries", std::move(batteries)}, {"peripherals", std::move(peripherals)},
        {"primary", primary ? Value(primary->key().value_or("")) : Value()}, {"sleep", power_.sleepTotal()},
        {"wallTime", context_.runtime.wallTime()}};
    if (auto total = collector_.internalTotal()) {
        answer["total"] = *std::move(total);
    }
    return answer;
}

void BatteryService::history(const Value& given, std::function<void(Result<Value>)> reply)
{
    Parameters parameters(given);
    const BatteryQuestion question = batteryQuestionFrom(parameters);
    if (!parameters.valid()) {
        return reply(parameters.failure());
    }
    collector_.readHistory(
        question, [figure = question.figure, reply = std::move(reply)](const std::optional<BatteryAnswer>& answer) {
            reply(answerFrom(figure, answer));
        });
}

void BatteryService::sleeps(const Value& given, std::function<void(Result<Value>)> reply)
{
    Parameters parameters(given);
    const BatterySleepQuestion question = sleepQuestionFrom(parameters);
    if (!parameters.valid()) {
        return reply(parameters.failure());
    }
    collector_.readSleeps(question, [reply = std::move(reply)](const std::optional<BatterySleepAnswer>& answer) {
        reply(answerFromSleeps(answer));
    });
}

} // namespace meridal
