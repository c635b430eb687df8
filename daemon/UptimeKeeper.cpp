#include "daemon/UptimeKeeper.h"

#include "collectors/uptime/UptimeStatCollectorMac.h"
#include "daemon/CollectorPorts.h"
#include "platform/Context.h"

#include <cmath>
#include <string>
#include <utility>

namespace meridal {

namespace {

constexpr double noteLeeway = 60; // s

const char* nameOf(BootEnd end)
{
    switch (end) {
    case BootEnd::Running:
        return "running";
    case BootEnd::Orderly:
        return "orderly";
    case BootEnd::Crash:
        return "crash";
    case BootEnd::Asleep:
        return "asleep";
    }
    return "";
}

template <typename Figure>
Value orNull(const std::optional<Figure>& figure)
{
    return figure ? Value(*figure) : Value();
}

Value describe(const BootRow& row)
{
    return {{"boot", row.boot}, {"started", row.started}, {"shutdown", orNull(row.shutdown)}, {"end", nameOf(row.end)},
        {"asleep", row.asleep}, {"length", row.length}};
}

/// A moment among the parameters; a failure when there is something else in its place.
Result<std::optional<double>> moment(const Value& parameters, const std::string& name)
{
    const Value* entry = find(parameters, name);
    if (!entry || entry->is_null()) {
        return std::optional<double>();
    }
    const auto figure = number(parameters, name);
    if (!figure) {
        return unexpected(ErrorCode::InvalidArgument, "\"" + name + "\" must be a number, in seconds since 1970");
    }
    return figure;
}

Result<UptimeQuestion> questionFrom(const Value& given)
{
    const Value& parameters = given.is_array() && given.size() == 1 ? given[0] : given;
    const bool none = parameters.is_null() || (parameters.is_array() && parameters.empty());
    if (!none && !parameters.is_object()) {
        return unexpected(
            ErrorCode::InvalidArgument, R"(expected an object with "from", "until", "limit" and "before")");
    }
    const auto from = moment(parameters, "from");
    const auto until = moment(parameters, "until");
    const auto before = moment(parameters, "before");
    for (const auto* each : {&from, &until, &before}) {
        if (!*each) {
            return unexpected(each->error().code, each->error().message);
        }
    }
    UptimeQuestion question{.from = from->value_or(0), .until = *until, .before = *before};
    if (question.until && *question.until < question.from) {
        return unexpected(ErrorCode::InvalidArgument, R"("until" lies before "from")");
    }
    if (const Value* limit = find(parameters, "limit"); limit && !limit->is_null()) {
        const auto count = integer(parameters, "limit");
        if (!count || *count < 1 || *count > static_cast<std::int64_t>(UptimeKeeper::longestPage)) {
            return unexpected(ErrorCode::InvalidArgument, "\"limit\" must be a whole number from 1 to 500");
        }
        question.limit = static_cast<std::size_t>(*count);
    }
    return question;
}

Result<Value> answerFrom(const std::optional<UptimeAnswer>& answer)
{
    if (!answer) {
        return unexpected(ErrorCode::Unavailable, "the record of boots cannot be read now");
    }
    if (!answer->knowsBefore) {
        return unexpected(ErrorCode::NotFound, "there is no boot of the time in \"before\"");
    }
    Value boots = Value::array();
    for (const BootRow& row : answer->boots) {
        boots.push_back(describe(row));
    }
    const UptimeNow& now = answer->now;
    const bool known = now.boot > 0;
    return Value{{"current",
                     {{"boot", known ? Value(now.boot) : Value()}, {"started", known ? Value(now.started) : Value()},
                         {"uptime", known ? Value(now.elapsed) : Value()}, {"asleep", answer->asleep}}},
        {"boots", std::move(boots)}, {"longest", answer->longest}, {"availability", orNull(answer->availability)},
        {"more", answer->more}};
}

} // namespace

UptimeKeeper::UptimeKeeper(Context& context, UptimeStatCollectorMac& collector, HistoryDatabaseController& databases)
    : context_(context), collector_(collector), database_(context, databases, collector)
{
}

void UptimeKeeper::plugInto(CollectorPorts& ports)
{
    ports.prepareUptime = [this] {
        database_.prepareUptime();
        collector_.prepareDatabase();
    };
    ports.saveBootTime = [this] { start(); };
    ports.saveShutdownTime = [this](Farewell why, double time, Task written) {
        database_.saveShutdownTime(why, time, std::move(written));
    };
    ports.saveSleep = [this](double from, double until) { database_.saveSleep(from, until); };
}

void UptimeKeeper::start()
{
    database_.saveBootTime();
    collector_.addToDatabase();
    notes_ = context_.runtime.startTimer(context_.runtime.mainQueue(),
        {.first = noteInterval, .interval = noteInterval, .leeway = noteLeeway}, [this] { database_.noteRunning(); });
}

void UptimeKeeper::boots(const Value& parameters, std::function<void(Result<Value>)> reply)
{
    const auto question = questionFrom(parameters);
    if (!question) {
        return reply(unexpected(question.error().code, question.error().message));
    }
    database_.readHistory(*question,
        [reply = std::move(reply)](const std::optional<UptimeAnswer>& answer) { reply(answerFrom(answer)); });
}

} // namespace meridal
