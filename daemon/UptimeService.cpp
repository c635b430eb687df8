// SPDX-License-Identifier: Apache-2.0
#include "daemon/UptimeService.h"

#include "collectors/uptime/UptimeStatCollectorMac.h"
#include "daemon/MeridalHistory.h"
#include "daemon/Parameters.h"
#include "platform/Context.h"
#include "wire/Methods.h"

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

Result<UptimeQuestion> uptimeQuestionFrom(const Value& given)
{
    Parameters parameters(given);
    UptimeQuestion question;
    parameters.flag("passive"); // must be one where it is given
    question.from = parameters.moment("from").value_or(0);
    question.until = parameters.moment("until");
    question.before = parameters.moment("before");
    question.limit = parameters.limit(question.limit, UptimeService::longestPage);
    if (question.until && *question.until < question.from) {
        parameters.refuse(R"("until" lies before "from")");
    }
    if (!parameters.valid()) {
        return parameters.failure();
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
    return Value{{"current",
                     {{"boot", now.boot > 0 ? Value(now.boot) : Value()},
                         {"started", now.started > 0 ? Value(now.started) : Value()},
                         {"uptime", now.started > 0 ? Value(now.elapsed) : Value()}, {"asleep", answer->asleep}}},
        {"boots", std::move(boots)},
        {"ends", {{"orderly", answer->ends.orderly}, {"crash", answer->ends.crash}, {"asleep", answer->ends.asleep}}},
        {"longest", answer->longest}, {"availability", orNull(answer->availability)}, {"more", answer->more}};
}

} // namespace

UptimeService::UptimeService(Context& context, UptimeStatCollectorMac& collector, HistoryDatabaseController& databases)
    : context_(context), collector_(collector), database_(context, databases, collector)
{
    // A boot time that is not the key may be a moved one, which would make the boot two.
    database_.whenConfirmed([this] { collector_.addToDatabase(); });
}

void UptimeService::prepare()
{
    database_.prepareUptime();
    collector_.prepareDatabase();
}

void UptimeService::saveShutdownTime(Farewell why, double time, Task written)
{
    kept_.reset();
    database_.saveShutdownTime(why, time, std::move(written));
}

void UptimeService::saveSleep(double from, double until)
{
    kept_.reset();
    database_.saveSleep(from, until);
}

void UptimeService::addTo(MeridalHistory& methods)
{
    methods.addAsyncMethod(
        method::uptimeBoots, [this](const Value& parameters, const Peer&, MeridalHistory::Reply reply) {
            boots(parameters, std::move(reply));
        });
}

void UptimeService::saveBootTime()
{
    database_.saveBootTime([this](auto reply) { collector_.askForRecordedBoottime(std::move(reply)); });
    notes_ = context_.runtime.startTimer(context_.runtime.mainQueue(),
        {.first = noteInterval, .interval = noteInterval, .leeway = noteLeeway, .onGrid = true},
        [this] { database_.noteRunning(); });
}

void UptimeService::boots(const Value& parameters, std::function<void(Result<Value>)> reply)
{
    const auto question = uptimeQuestionFrom(parameters);
    if (!question) {
        return reply(unexpected(question.error().code, question.error().message));
    }
    const bool isPassive = Parameters(parameters).flag("passive");
    if (const auto known = isPassive ? kept(*question) : std::nullopt) {
        return reply(answerFrom(known));
    }
    database_.readHistory(*question,
        [this, isPassive, question = *question, reply = std::move(reply)](const std::optional<UptimeAnswer>& answer) {
            if (isPassive && answer) {
                kept_ = {question, *answer, context_.runtime.monotonicTime()};
            }
            reply(answerFrom(answer));
        });
}

/// Of what went on since only this boot has become longer.
std::optional<UptimeAnswer> UptimeService::kept(const UptimeQuestion& question) const
{
    const double age = kept_ ? context_.runtime.monotonicTime() - kept_->readAt : keptFor;
    if (age >= keptFor || kept_->question != question) {
        return std::nullopt;
    }
    UptimeAnswer answer = kept_->answer;
    answer.now.elapsed += age;
    for (BootRow& boot : answer.boots) {
        boot.length += boot.end == BootEnd::Running ? age : 0;
    }
    return answer;
}

} // namespace meridal
