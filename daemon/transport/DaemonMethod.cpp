// SPDX-License-Identifier: Apache-2.0
#include "daemon/transport/DaemonMethod.h"
#include "wire/Methods.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace meridal {

namespace {

using enum ParameterKind;

DaemonProtocol::ValueReply valueReply(const PendingAnswerPtr& answer)
{
    return [answer](Value value) { answer->succeed(std::move(value)); };
}

DaemonProtocol::ActionReply actionReply(const PendingAnswerPtr& answer)
{
    return [answer](const Result<void>& result) {
        if (result) {
            answer->succeed(nullptr);
        } else {
            answer->fail(failureOf(result.error()));
        }
    };
}

/// A float as its author wrote it: widened as it is, 6.6 would be read as 6.599999904632568.
double asWritten(float value) { return std::round(static_cast<double>(value) * 1e6) / 1e6; }

std::string takeText(Value& value) { return std::move(value.get_ref<std::string&>()); }

constexpr DaemonMethod methods[] = {
    {method::infoForPids, {{{"pids", NumberList}}}, 1, true,
        [](DaemonProtocol& daemon, Value& given, const PendingAnswerPtr& answer) {
            daemon.infoForPids(std::move(given[0]), valueReply(answer));
        }},
    {method::version, {}, 0, true,
        [](DaemonProtocol& daemon, Value&, const PendingAnswerPtr& answer) {
            daemon.version([answer](float version, std::int64_t build) {
                answer->succeed(Value::array({asWritten(version), build}));
            });
        }},
    {method::fps, {}, 0, true,
        [](DaemonProtocol& daemon, Value&, const PendingAnswerPtr& answer) {
            daemon.fps([answer](double rate) { answer->succeed(rate); });
        }},
    {method::exists, {}, 0, true,
        [](DaemonProtocol& daemon, Value&, const PendingAnswerPtr& answer) {
            daemon.exists([answer](bool exists) { answer->succeed(exists); });
        }},
    {method::enableHierachy, {}, 0, false,
        [](DaemonProtocol& daemon, Value&, const PendingAnswerPtr&) { daemon.enableHierachy(); }},
    {method::disableHierachy, {}, 0, false,
        [](DaemonProtocol& daemon, Value&, const PendingAnswerPtr&) { daemon.disableHierachy(); }},
    {method::startRequestWithKey, {{{"key", Integer}, {"interval", Integer}}}, 2, false,
        [](DaemonProtocol& daemon, Value& given, const PendingAnswerPtr&) {
            daemon.startRequestWithKey(given[0].get<std::int64_t>(), given[1].get<std::int64_t>());
        }},
    {method::stopRequestWithKey, {{{"key", Integer}}}, 1, false,
        [](DaemonProtocol& daemon, Value& given, const PendingAnswerPtr&) {
            daemon.stopRequestWithKey(given[0].get<std::int64_t>());
        }},
    {method::smartTemps, {}, 0, false,
        [](DaemonProtocol& daemon, Value&, const PendingAnswerPtr&) { daemon.smartTemps(); }},
    {method::startSMARTStatus, {}, 0, false,
        [](DaemonProtocol& daemon, Value&, const PendingAnswerPtr&) { daemon.startSMARTStatus(); }},
    {method::stopSMARTStatus, {}, 0, false,
        [](DaemonProtocol& daemon, Value&, const PendingAnswerPtr&) { daemon.stopSMARTStatus(); }},
    {method::startSMARTTemps, {}, 0, false,
        [](DaemonProtocol& daemon, Value&, const PendingAnswerPtr&) { daemon.startSMARTTemps(); }},
    {method::stopSMARTTemps, {}, 0, false,
        [](DaemonProtocol& daemon, Value&, const PendingAnswerPtr&) { daemon.stopSMARTTemps(); }},
    {method::refreshDHCP, {{{"interface", Text}}}, 1, true,
        [](DaemonProtocol& daemon, Value& given, const PendingAnswerPtr& answer) {
            daemon.refreshDHCP(takeText(given[0]), actionReply(answer));
        }},
    {method::toggleAirPortPower, {}, 0, true,
        [](DaemonProtocol& daemon, Value&, const PendingAnswerPtr& answer) {
            daemon.toggleAirPortPower(actionReply(answer));
        }},
    {method::setNetworkSet, {{{"identifier", Text}}}, 1, true,
        [](DaemonProtocol& daemon, Value& given, const PendingAnswerPtr& answer) {
            daemon.setNetworkSet(takeText(given[0]), actionReply(answer));
        }},
    {method::setFanSet, {{{"set", Anything}}}, 1, false,
        [](DaemonProtocol& daemon, Value& given, const PendingAnswerPtr&) { daemon.setFanSet(std::move(given[0])); }},
    {method::setT2FanConfig, {{{"config", Anything}}}, 1, true,
        [](DaemonProtocol& daemon, Value& given, const PendingAnswerPtr& answer) {
            daemon.setT2FanConfig(std::move(given[0]), valueReply(answer));
        }},
    {method::setT2FanSet, {{{"set", Anything}}}, 1, false,
        [](DaemonProtocol& daemon, Value& given, const PendingAnswerPtr&) { daemon.setT2FanSet(std::move(given[0])); }},
    {method::stopT2Fans, {}, 0, true,
        [](DaemonProtocol& daemon, Value&, const PendingAnswerPtr& answer) { daemon.stopT2Fans(valueReply(answer)); }},
    {method::startT2Fans, {}, 0, true,
        [](DaemonProtocol& daemon, Value&, const PendingAnswerPtr& answer) { daemon.startT2Fans(valueReply(answer)); }},
    {method::finalizeT2Fans, {}, 0, true,
        [](DaemonProtocol& daemon, Value&, const PendingAnswerPtr& answer) {
            daemon.finalizeT2Fans(valueReply(answer));
        }},
    {method::setT2SafetyTemperature, {{{"degrees", Number}}}, 1, false,
        [](DaemonProtocol& daemon, Value& given, const PendingAnswerPtr&) {
            daemon.setT2SafetyTemperature(given[0].get<double>());
        }},
    {method::sensors, {{{"configurations", DictionaryList}}}, 1, true,
        [](DaemonProtocol& daemon, Value& given, const PendingAnswerPtr& answer) {
            daemon.sensors(std::move(given[0]), valueReply(answer));
        }},
    {method::armSensors, {{{"selection", Anything}}}, 1, true,
        [](DaemonProtocol& daemon, Value& given, const PendingAnswerPtr& answer) {
            daemon.armSensors(std::move(given[0]), valueReply(answer));
        }},
    {method::supportedSensors, {{{"selection", Anything}}}, 1, true,
        [](DaemonProtocol& daemon, Value& given, const PendingAnswerPtr& answer) {
            daemon.supportedSensors(std::move(given[0]), valueReply(answer));
        }},
    {method::supportedFans, {{{"selection", Anything}}}, 1, true,
        [](DaemonProtocol& daemon, Value& given, const PendingAnswerPtr& answer) {
            daemon.supportedFans(std::move(given[0]), valueReply(answer));
        }},
};
static_assert(std::size(methods) == 27);

std::string_view describe(ParameterKind kind)
{
    switch (kind) {
    case Integer:
        return "an integer of 64 bits";
    case Number:
        return "a number";
    case Text:
        return "a string";
    case NumberList:
        return "an array of numbers";
    case DictionaryList:
        return "an array of objects";
    case Anything:
        break;
    }
    return "any value";
}

bool fits(ParameterKind kind, const Value& value)
{
    constexpr auto largest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    switch (kind) {
    case Integer:
        return value.is_number_integer() && (!value.is_number_unsigned() || value.get<std::uint64_t>() <= largest);
    case Number:
        return value.is_number();
    case Text:
        return value.is_string();
    case NumberList:
        return value.is_array()
            && std::all_of(value.begin(), value.end(), [](const Value& entry) { return entry.is_number(); });
    case DictionaryList:
        return value.is_array()
            && std::all_of(value.begin(), value.end(), [](const Value& entry) { return entry.is_object(); });
    case Anything:
        break;
    }
    return true;
}

} // namespace

std::optional<JsonRpcFailure> DaemonMethod::check(const Value& given) const
{
    if (given.is_object()) {
        return JsonRpcFailure{
            JsonRpcCode::InvalidParams, fmt::format("{} takes its parameters by position, in an array", selector)};
    }
    if (given.size() != parameterCount) {
        return JsonRpcFailure{JsonRpcCode::InvalidParams,
            fmt::format("{} takes {} parameter{}, not {}", selector, parameterCount, parameterCount == 1 ? "" : "s",
                given.size())};
    }
    for (std::size_t i = 0; i < parameterCount; ++i) {
        const MethodParameter& parameter = parameterSlots[i];
        if (!fits(parameter.kind, given[i])) {
            return JsonRpcFailure{JsonRpcCode::InvalidParams,
                fmt::format(
                    "{}: parameter {} ({}) must be {}", selector, i + 1, parameter.name, describe(parameter.kind))};
        }
    }
    return std::nullopt;
}

std::span<const DaemonMethod> DaemonMethod::all() { return methods; }

const DaemonMethod* DaemonMethod::named(std::string_view selector)
{
    const auto method = std::find_if(
        std::begin(methods), std::end(methods), [&](const DaemonMethod& entry) { return entry.selector == selector; });
    return method == std::end(methods) ? nullptr : method;
}

} // namespace meridal
