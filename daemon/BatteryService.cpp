#include "daemon/BatteryService.h"

#include "base/Runtime.h"
#include "collectors/battery/BatteryStatCollectorMac.h"
#include "daemon/MeridalHistory.h"
#include "daemon/ZAVPowerManager.h"
#include "platform/Context.h"
#include "platform/host/Host.h"
#include "wire/Methods.h"

#include <array>
#include <string>
#include <string_view>
#include <utility>

namespace meridal {

namespace {

constexpr std::array<std::pair<std::string_view, BatteryFigure>, 3> figures = {
    {{"health", BatteryFigure::Health}, {"cycles", BatteryFigure::Cycles}, {"source", BatteryFigure::Source}}};

Unexpected invalid(std::string message) { return unexpected(ErrorCode::InvalidArgument, std::move(message)); }

bool isGiven(const Value& parameters, std::string_view name)
{
    const Value* entry = find(parameters, name);
    return entry && !entry->is_null();
}

Result<BatteryFigure> figureFrom(const Value& parameters)
{
    if (!isGiven(parameters, "figure")) {
        return BatteryFigure::Health;
    }
    const auto given = text(parameters, "figure");
    for (const auto& [name, figure] : figures) {
        if (given == name) {
            return figure;
        }
    }
    return invalid(R"("figure" must be "health", "cycles" or "source")");
}

/// A moment among the parameters; a failure when there is something else in its place.
Result<std::optional<double>> moment(const Value& parameters, const std::string& name)
{
    const auto figure = number(parameters, name);
    if (isGiven(parameters, name) && !figure) {
        return invalid("\"" + name + "\" must be a number, in seconds since 1970");
    }
    return figure;
}

/// The part of the question that is whole numbers and text.
Result<void> readPlace(const Value& parameters, BatteryQuestion& question)
{
    question.key = text(parameters, "key");
    if (isGiven(parameters, "key") && !question.key) {
        return invalid("\"key\" must be text");
    }
    question.before = integer(parameters, "before");
    if (isGiven(parameters, "before") && !question.before) {
        return invalid("\"before\" must be a whole number, the \"row\" of the last one of the page before");
    }
    if (isGiven(parameters, "limit")) {
        const auto count = integer(parameters, "limit");
        if (!count || *count < 1 || *count > static_cast<std::int64_t>(BatteryService::longestPage)) {
            return invalid("\"limit\" must be a whole number from 1 to 500");
        }
        question.limit = static_cast<std::size_t>(*count);
    }
    return {};
}

Result<BatteryQuestion> questionFrom(const Value& given)
{
    const Value& parameters = given.is_array() && given.size() == 1 ? given[0] : given;
    const bool none = parameters.is_null() || (parameters.is_array() && parameters.empty());
    if (!none && !parameters.is_object()) {
        return invalid(R"(expected an object with "figure", "key", "from", "until", "before" and "limit")");
    }
    const auto figure = figureFrom(parameters);
    if (!figure) {
        return Unexpected{figure.error()};
    }
    BatteryQuestion question;
    question.figure = *figure;
    if (const auto done = readPlace(parameters, question); !done) {
        return Unexpected{done.error()};
    }
    const auto from = moment(parameters, "from");
    const auto until = moment(parameters, "until");
    for (const auto* each : {&from, &until}) {
        if (!*each) {
            return Unexpected{each->error()};
        }
    }
    question.from = *from;
    question.until = *until;
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

} // namespace

BatteryService::BatteryService(Context& context, BatteryStatCollectorMac& collector, ZAVPowerManager& power)
    : context_(context), collector_(collector), power_(power)
{
    collector_.setSleptInAll([&power] { return power.sleptInAll(); });
}

void BatteryService::prepare()
{
    collector_.prepareDatabase();
    collector_.setDisableAllBluetooth(true); // only those who ask for peripherals have them read
    update();
    // A pack that is full, a second battery and a UPS change without the machine's source.
    sourcesObservation_ = context_.host.powerSources->observe([this] { update(); });
}

void BatteryService::update() { collector_.updateStats(); }

void BatteryService::addTo(MeridalHistory& methods)
{
    methods.addAsyncMethod(
        method::batteryState, [this](const Value& parameters, const Peer&, MeridalHistory::Reply reply) {
            state(parameters, std::move(reply));
        });
    methods.addAsyncMethod(
        method::batteryHistory, [this](const Value& parameters, const Peer&, MeridalHistory::Reply reply) {
            history(parameters, std::move(reply));
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

void BatteryService::state(const Value& parameters, std::function<void(Result<Value>)> reply)
{
    if (!parameters.is_null() && !parameters.empty()) {
        return reply(invalid("takes no parameters"));
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

void BatteryService::history(const Value& parameters, std::function<void(Result<Value>)> reply)
{
    const auto question = questionFrom(parameters);
    if (!question) {
        return reply(Unexpected{question.error()});
    }
    collector_.readHistory(
        *question, [figure = question->figure, reply = std::move(reply)](const std::optional<BatteryAnswer>& answer) {
            reply(answerFrom(figure, answer));
        });
}

} // namespace meridal
