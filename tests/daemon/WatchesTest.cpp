// SPDX-License-Identifier: Apache-2.0
#include "daemon/Watches.h"
#include "daemon/MeridalHistory.h"
#include "tests/support/FakeClient.h"
#include "tests/support/VirtualRuntime.h"
#include "tests/transport/SocketFixture.h"

#include <gtest/gtest.h>

namespace meridal::test {
namespace {

Value parsed(std::string_view text) { return parseUntrusted(text).value(); }

/// A state of three members that is watched at "thing.watch", in virtual time.
struct WatchesTest : testing::Test {
    WatchesTest()
    {
        watches.addWatch("thing.watch", 1, [this](const Peer& peer) {
            ++made;
            Value seen = state;
            seen["uid"] = peer.uid;
            return std::make_shared<const Value>(std::move(seen));
        });
    }
    Value ask(const std::shared_ptr<ClientLink>& who, const Value& parameters)
    {
        Value answer;
        methods.call("thing.watch", parameters, {who ? who->peer() : Peer(), who},
            [&answer](const Result<Value>& result) { answer = result ? *result : Value(result.error().message); });
        runtime.runDue();
        return answer;
    }
    /// What a client takes of what waits for it.
    static std::vector<Value> taken(FakeClient& who)
    {
        std::vector<Value> all;
        for (const EnvelopePtr& each : std::exchange(who.received, {})) {
            EXPECT_EQ(each->method(), "thing.watch");
            all.push_back(each->dictionary());
        }
        return all;
    }

    VirtualRuntime runtime;
    MeridalHistory methods{runtime.mainQueue()};
    Watches watches{runtime, methods};
    Value state = {{"time", 1}, {"a", 1}, {"b", {{"c", 2}}}};
    int made = 0;
    std::shared_ptr<FakeClient> client = std::make_shared<FakeClient>();
};

TEST_F(WatchesTest, WhatChangesIsToldAtTheCadenceOfEachWatcher)
{
    const auto slower = std::make_shared<FakeClient>(Peer{.uid = 7});
    EXPECT_EQ(ask(client, nullptr), parsed(R"({"time":1,"a":1,"b":{"c":2},"uid":1000})"));
    EXPECT_EQ(ask(slower, {{"interval", 4}})["uid"], 7);
    state["time"] = 2;
    runtime.advance(1);
    EXPECT_TRUE(client->received.empty()) << "nothing but the time has changed";
    state["a"] = 2;
    runtime.advance(1);
    EXPECT_EQ(taken(*client), std::vector{parsed(R"({"time":2,"a":2})")});
    state["b"]["c"] = 3;
    state.erase("a");
    runtime.advance(2);
    EXPECT_EQ(taken(*client), std::vector{parsed(R"({"time":2,"a":null,"b":{"c":3}})")});
    EXPECT_EQ(taken(*slower), std::vector{parsed(R"({"time":2,"a":null,"b":{"c":3}})")}) << "since its answer";

    EXPECT_EQ(ask(client, {{"interval", 3600}})["b"], parsed(R"({"c":3})")) << "again: another cadence, and everything";
    EXPECT_EQ(watches.count(), 2U);
    EXPECT_TRUE(ask(client, {{"interval", 0}}).is_null());
    EXPECT_TRUE(ask(client, {{"interval", 0}}).is_null()) << "twice";
    state["a"] = 5;
    runtime.advance(4);
    EXPECT_TRUE(client->received.empty());
    EXPECT_EQ(taken(*slower).size(), 1U) << "goes on";
    runtime.jump(60);
    made = 0;
    runtime.advance(3);
    EXPECT_LE(made, 2) << "what was missed is not made up for";

    for (const Value& wrong : {Value(0.5), Value(-1), Value(1e9), Value("often")}) {
        EXPECT_TRUE(ask(client, {{"interval", wrong}}).is_string()) << wrong;
    }
    EXPECT_TRUE(ask(nullptr, nullptr).is_string()) << "without a way to tell";
    EXPECT_EQ(watches.count(), 1U);
}

TEST_F(WatchesTest, AClientThatDoesNotTakeItsOwnIsToldEverythingLaterAndCostsNothingMeanwhile)
{
    ask(client, nullptr);
    for (int turn = 0; turn < 5; ++turn) {
        state["a"] = 10 + turn;
        state["b"] = turn;
        made = 0;
        runtime.advance(1);
        EXPECT_EQ(made, turn == 0 ? 1 : 0);
    }
    EXPECT_EQ(taken(*client), std::vector{parsed(R"({"time":1,"a":10,"b":0})")}) << "one waits, the first";
    runtime.advance(1);
    EXPECT_EQ(taken(*client), std::vector{parsed(R"({"time":1,"a":14,"b":4})")});

    state["a"] = 20;
    runtime.advance(1); // waits as it asks again, and may arrive after that answer
    EXPECT_EQ(ask(client, nullptr)["a"], 20);
    taken(*client);
    runtime.advance(2);
    EXPECT_EQ(taken(*client), std::vector{parsed(R"({"time":1,"a":20,"b":4,"uid":1000})")});

    client.reset();
    made = 0;
    runtime.advance(10);
    EXPECT_EQ(made, 0);
    EXPECT_EQ(watches.count(), 0U);
}

/// The same over real sockets, with a main queue on a thread of its own.
struct WatchSocketTest : SocketFixture {
    WatchSocketTest()
    {
        watches.addWatch("thing.watch", 0.01, [this](const Peer&) {
            ++turn;
            Value state = {{"time", turn.load()}, {"padding", std::string(300'000, 'p')}, {"list", Value::array()}};
            state["padding"].get_ref<std::string&>().append(std::to_string(turn));
            return std::make_shared<const Value>(std::move(state));
        });
        loop = std::thread([this] { runtime.run(); });
        auto result = UnixSocketListener::listen(path, *this, &methods, runtime.mainQueue());
        listener = std::move(result.value());
    }
    ~WatchSocketTest() override
    {
        runtime.stop();
        loop.join();
    }
    bool onMain(const std::function<bool()>& question)
    {
        bool answer = false;
        runtime.mainQueue().runAndWait([&] { answer = question(); });
        return answer;
    }

    std::atomic<int> turn{0};
    AsioRuntime runtime;
    MeridalHistory methods{runtime.mainQueue()};
    Watches watches{runtime, methods};
    std::thread loop;
};

TEST_F(WatchSocketTest, ASlowClientHoldsUpNobodyAndGetsWholeLinesToTheNewest)
{
    Client slow(path);
    Client quick(path);
    slow.ask(requestOf("thing.watch", "{}"));
    quick.send(requestOf("thing.watch", "{}") + "\n");
    int wholes = 0;
    for (int received = 0; received < 21; ++received) { // many times what a socket holds
        const Value told = parsed(quick.line().value());
        wholes += told.contains("result") && told["result"].contains("list") ? 1 : 0;
        EXPECT_TRUE(told.contains("result") || (told["method"] == "thing.watch" && !told["params"].contains("list")));
    }
    EXPECT_EQ(wholes, 1);
    const int newest = turn;
    int lines = 0;
    int time = 0;
    for (; time < newest; ++lines) {
        const Value told = parsed(slow.line().value());
        time = told.contains("params") ? told["params"]["time"].get<int>() : time; // its answer may have been overtaken
    }
    EXPECT_LT(lines, 10) << "the rest was never made";

    slow.close();
    quick.close();
    {
        const std::lock_guard lock(mutex);
        served.clear(); // as a daemon does when a connection has ended
    }
    EXPECT_TRUE(eventually([this] { return onMain([this] { return watches.count() == 0; }); })) << "ended with them";
}

} // namespace
} // namespace meridal::test
