// SPDX-License-Identifier: Apache-2.0
#include "daemon/transport/JsonRpcDispatcher.h"
#include "daemon/transport/DaemonMethod.h"
#include "tests/support/VirtualRuntime.h"
#include "tests/transport/FakeDaemon.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <stdexcept>

namespace meridal {
namespace {

class JsonRpcDispatcherTest : public testing::Test {
protected:
    /// The whole answer; an empty string for none.
    std::string answerTo(std::string_view line)
    {
        std::string answer;
        int outcomes = 0;
        dispatcher.dispatch(line, daemon, peer, [&](const JsonRpcOutcome& outcome) {
            ++outcomes;
            refused = outcome.refused;
            answer = outcome.answer ? encode(*outcome.answer) : "";
        });
        runtime.runDue();
        EXPECT_EQ(outcomes, 1) << line;
        return answer;
    }
    std::string request(std::string_view method, const Value& parameters)
    {
        return serialise({{"jsonrpc", "2.0"}, {"id", 1}, {"method", method}, {"params", parameters}});
    }
    /// The error code of the answer; 0 when it is a result.
    std::int64_t codeOf(std::string_view line)
    {
        const auto answer = parseUntrusted(answerTo(line));
        if (!answer) {
            ADD_FAILURE() << "no answer to " << line.substr(0, 200);
            return -1;
        }
        const Value* error = find(*answer, "error");
        return error ? integer(*error, "code").value_or(-1) : 0;
    }

    VirtualRuntime runtime;
    test::FakeNamedMethods named;
    test::FakeExportedConnection daemon;
    Peer peer{.uid = 1000, .gid = 1000, .known = true};
    JsonRpcDispatcher dispatcher{&named, runtime.mainQueue()};
    bool refused = false;
};

struct MethodCase {
    const char* method;
    const char* parameters;
    const char* answer; ///< from "result" or "error" on
};

constexpr const char* fanAnswer = R"("result":{"result":1})";
constexpr const char* none = R"("result":null)";

const MethodCase everyMethod[] = {
    {"infoForPids:reply:", "[[1,2.5]]", R"("result":[{"name":"someone","pid":1},{"name":"someone","pid":2.5}])"},
    {"version:", "[]", R"("result":[6.6,1177])"},
    {"fps:", "[]", R"("result":60.0)"},
    {"exists:", "[]", R"("result":true)"},
    {"enableHierachy", "[]", none},
    {"disableHierachy", "[]", none},
    {"startRequestWithKey:interval:", "[9223372036854775807,-5]", none},
    {"stopRequestWithKey:", "[3]", none},
    {"smartTemps", "[]", none},
    {"startSMARTStatus", "[]", none},
    {"stopSMARTStatus", "[]", none},
    {"startSMARTTemps", "[]", none},
    {"stopSMARTTemps", "[]", none},
    {"refreshDHCP:", R"(["en0"])", R"("error":{"code":-32002,"message":"there is no such interface"})"},
    {"toggleAirPortPower", "[]", none},
    {"setNetworkSet:", R"(["home"])", R"("error":{"code":-32001,"message":"not for you"})"},
    {"setFanSet:", R"([{"a":[1]}])", none},
    {"setT2FanConfig:reply:", "[null]", fanAnswer},
    {"setT2FanSet:", "[7]", none},
    {"stopT2Fans:", "[]", fanAnswer},
    {"startT2Fans:", "[]", fanAnswer},
    {"finalizeT2Fans:", "[]", fanAnswer},
    {"setT2SafetyTemperature:", "[87.5]", none},
    {"sensors:reply:", R"([[{"key":"TC0P"}]])", R"("result":[])"},
    {"armSensors:reply:", "[[]]", R"("result":[])"},
    {"supportedSensors:reply:", "[{}]", R"("result":{"fans":[],"sensors":[]})"},
    {"supportedFans:reply:", R"(["all"])", R"("result":[])"},
};

TEST_F(JsonRpcDispatcherTest, EveryMethodIsCalledWithItsArgumentsAndAnswersItsReply)
{
    ASSERT_EQ(std::size(everyMethod), DaemonMethod::all().size());
    std::vector<std::string> expectedCalls;
    for (const MethodCase& entry : everyMethod) {
        const auto parameters = *parseUntrusted(entry.parameters);
        EXPECT_EQ(answerTo(request(entry.method, parameters)),
            R"({"jsonrpc":"2.0","id":1,)" + std::string(entry.answer) + "}\n")
            << entry.method;
        expectedCalls.push_back(std::string(entry.method) + " " + serialise(parameters));
    }
    EXPECT_EQ(daemon.calls(), expectedCalls);
}

TEST_F(JsonRpcDispatcherTest, WrongParametersAreRefusedBeforeTheDaemonSeesThem)
{
    const Value wrong[] = {nullptr, true, "text", 1.5, 18446744073709551615ULL, Value::object(), {{"key", 1}},
        Value::array({"text"}), Value::array({1})};
    for (std::size_t i = 0; i < std::size(everyMethod); ++i) {
        const DaemonMethod& method = DaemonMethod::all()[i];
        const auto good = *parseUntrusted(everyMethod[i].parameters);
        std::vector<Value> bad{Value::object(), {{"key", 1}}, Value(good.size() + 1, 1)};
        if (!good.empty()) {
            bad.push_back(Value::array());
        }
        for (std::size_t p = 0; p < good.size(); ++p) {
            for (const Value& value : wrong) {
                using Kind = ParameterKind;
                const Kind kind = method.parameters()[p].kind;
                const bool fits = kind == Kind::Anything || (kind == Kind::Number && value.is_number())
                    || (kind == Kind::Text && value.is_string())
                    || (kind == Kind::NumberList && value == Value::array({1}));
                if (!fits) {
                    bad.push_back(good);
                    bad.back()[p] = value;
                }
            }
        }
        for (const Value& parameters : bad) {
            const std::string line = request(method.selector, parameters);
            EXPECT_EQ(codeOf(line), -32602) << line;
            EXPECT_TRUE(refused);
        }
    }
    EXPECT_TRUE(daemon.calls().empty());
    EXPECT_EQ(answerTo(request("startRequestWithKey:interval:", {1, "often"})),
        R"({"jsonrpc":"2.0","id":1,"error":{"code":-32602,"message":)"
        R"("startRequestWithKey:interval:: parameter 2 (interval) must be an integer of 64 bits"}})"
        "\n");
}

TEST_F(JsonRpcDispatcherTest, WhatIsNoRequestIsRefusedWithItsReason)
{
    struct Case {
        std::string line;
        std::int64_t code;
        const char* message;
    };
    constexpr const char* noBatches = "batches are not supported: send one request a line";
    const Case cases[] = {
        {"{\"jsonrpc\":", -32700, "the line is not valid JSON"},
        {std::string(200'000, '['), -32700, "arrays and objects nest deeper than 32 levels"},
        {request("setFanSet:", {Value(maximumValues, Value::object())}), -32600,
            "a request holds more than 65536 values"},
        {"{\"jsonrpc\":\"2.0\",\"method\":\"\xC3\x28\"}", -32700, "the line is not valid UTF-8"},
        {"{\"jsonrpc\":\"2.0\",\"method\":\"\\ud800\"}", -32700, "the line is not valid JSON"},
        {"[]", -32600, noBatches},
        {R"([{"jsonrpc":"2.0","id":1,"method":"exists:"}])", -32600, noBatches},
        {"7", -32600, "a request must be an object"},
        {"{}", -32600, "jsonrpc must be \"2.0\""},
        {R"({"jsonrpc":2.0,"method":"exists:"})", -32600, "jsonrpc must be \"2.0\""},
        {R"({"jsonrpc":"2.0","id":1,"result":true})", -32600, "method must be a string"},
        {R"({"jsonrpc":"2.0","method":["exists:"]})", -32600, "method must be a string"},
        {R"({"jsonrpc":"2.0","method":"exists:","params":"x"})", -32600, "params must be an array, or be left out"},
        {R"({"jsonrpc":"2.0","method":"exists:","params":null})", -32600, "params must be an array, or be left out"},
        {R"({"jsonrpc":"2.0","method":"exists:","id":1.5})", -32600, "id must be a string, an integer or null"},
        {R"({"jsonrpc":"2.0","method":"exists:","id":[1]})", -32600, "id must be a string, an integer or null"},
        {R"({"jsonrpc":"2.0","method":"exists:","id":")" + std::string(5000, 'i') + "\"}", -32600, "id is too long"},
    };
    for (const Case& entry : cases) {
        const auto answer = parseUntrusted(answerTo(entry.line));
        ASSERT_TRUE(answer) << entry.line.substr(0, 100);
        EXPECT_TRUE(refused);
        EXPECT_EQ((*answer)["error"], (Value{{"code", entry.code}, {"message", entry.message}}));
    }
    EXPECT_TRUE(daemon.calls().empty());
}

TEST_F(JsonRpcDispatcherTest, AnswersCarryTheIdAndNothingElseOfTheClient)
{
    for (const char* id : {"0", "-9223372036854775808", "18446744073709551615", "\"a\\u0000b\"", "\"\"", "null"}) {
        const std::string prefix = std::string(R"({"jsonrpc":"2.0","id":)") + id;
        EXPECT_EQ(answerTo(prefix + R"(,"method":"exists:"})"), prefix + ",\"result\":true}\n");
        EXPECT_EQ(answerTo(prefix + R"(,"method":"Secret"})"),
            prefix + ",\"error\":{\"code\":-32601,\"message\":\"there is no such method\"}}\n");
        EXPECT_EQ(answerTo(prefix + R"(,"params":3})"),
            prefix + ",\"error\":{\"code\":-32600,\"message\":\"method must be a string\"}}\n");
    }
}

TEST_F(JsonRpcDispatcherTest, NotificationsAreCarriedOutAndNeverAnswered)
{
    EXPECT_EQ(answerTo(R"({"jsonrpc":"2.0","method":"exists:"})"), "");
    EXPECT_FALSE(refused);
    EXPECT_EQ(answerTo(R"({"jsonrpc":"2.0","method":"enableHierachy"})"), "");
    EXPECT_EQ(answerTo(R"({"jsonrpc":"2.0","method":"stopRequestWithKey:","params":["x"]})"), "");
    EXPECT_TRUE(refused) << "counted all the same";
    EXPECT_EQ(answerTo(R"({"jsonrpc":"2.0","method":"nothing"})"), "");
    EXPECT_EQ(daemon.calls(), (std::vector<std::string>{"exists: []", "enableHierachy []"}));
}

TEST_F(JsonRpcDispatcherTest, NamedMethodsTakeParametersEitherWay)
{
    const std::pair<std::string, const char*> calls[] = {{request("echo", {{"from", 1}}), R"({"from":1})"},
        {request("echo", {1, 2}), "[1,2]"}, {R"({"jsonrpc":"2.0","id":1,"method":"echo"})", "null"},
        {request("status", Value::array()), R"({"uid":1000})"}};
    for (const auto& [call, result] : calls) {
        EXPECT_EQ(answerTo(call), R"({"jsonrpc":"2.0","id":1,"result":)" + std::string(result) + "}\n");
    }
    EXPECT_EQ(codeOf(request("broken", Value::array())), -32003);
    EXPECT_FALSE(refused) << "not the client's fault";
    JsonRpcDispatcher without(nullptr, runtime.mainQueue());
    without.dispatch(request("echo", Value::array()), daemon, peer,
        [](const JsonRpcOutcome& outcome) { EXPECT_EQ(outcome.answer->failure->code, JsonRpcCode::MethodNotFound); });
}

TEST_F(JsonRpcDispatcherTest, AFailingMethodIsAnsweredToo)
{
    daemon.onCall = [](const std::string&, const Value&) { throw std::runtime_error("odd input"); };
    EXPECT_EQ(codeOf(request("exists:", Value::array())), -32603);
    EXPECT_EQ(codeOf(request("enableHierachy", Value::array())), -32603);
}

TEST(PendingAnswer, FirstAnswerCountsAndAForgottenCallIsAnswered)
{
    std::vector<JsonRpcOutcome> outcomes;
    const auto keep = [&](JsonRpcOutcome outcome) { outcomes.push_back(std::move(outcome)); };
    {
        PendingAnswer answer(Value(1), keep);
        answer.succeed("first");
        answer.fail({JsonRpcCode::InternalError, "second"});
    }
    ASSERT_EQ(outcomes.size(), 1U);
    EXPECT_EQ(outcomes[0].answer->result, "first");
    {
        const PendingAnswer forgotten(Value(2), keep);
    }
    ASSERT_EQ(outcomes.size(), 2U);
    EXPECT_EQ(outcomes[1].answer->failure->code, JsonRpcCode::InternalError);
    EXPECT_FALSE(outcomes[1].refused);
}

using Damage = std::vector<std::pair<std::uint8_t, char>>; // places in a request, and what stands there instead
RC_GTEST_FIXTURE_PROP(JsonRpcDispatcherTest, AnyBytesGetExactlyOneOutcomeOfValidUtf8, (const Damage& damage))
{
    std::string line = R"({"jsonrpc":"2.0","id":"x","method":"startRequestWithKey:interval:","params":[1,2]})";
    for (const auto& [at, byte] : damage) {
        line[at % line.size()] = byte;
    }
    const std::string answer = answerTo(line);
    RC_ASSERT(answer.empty() || parseUntrusted(answer));
}

} // namespace
} // namespace meridal
