// SPDX-License-Identifier: Apache-2.0
#include "client/DaemonClient.h"

#include "tests/client/FakeDaemon.h"
#include "tests/support/TemporaryTree.h"

#include <gmock/gmock.h>

#include <optional>
#include <vector>

namespace meridal {
namespace {

using testing::ElementsAre;

class DaemonClientTest : public testing::Test {
protected:
    /// Connects, runs the task and serves both ends until done() is called.
    void serve(const Task& task)
    {
        client.connect([&](const Result<void>& outcome) {
            ASSERT_TRUE(outcome) << outcome.error().message;
            task();
        });
        const auto watchdog = loop.after(20, [this] {
            ADD_FAILURE() << "nothing happened";
            loop.stop();
        });
        loop.run();
    }
    void done() { loop.stop(); }
    DaemonClient::Reply expectValue(Value expected)
    {
        return [this, expected = std::move(expected)](const Result<Value>& result) {
            ASSERT_TRUE(result) << result.error().message;
            EXPECT_EQ(*result, expected);
            done();
        };
    }
    DaemonClient::Reply expectError(ErrorCode code, std::string message)
    {
        return [this, expected = Error{code, std::move(message)}](const Result<Value>& result) {
            ASSERT_FALSE(result);
            EXPECT_EQ(result.error().code, expected.code);
            EXPECT_EQ(result.error().message, expected.message);
            done();
        };
    }

    test::TemporaryTree folder;
    EventLoop loop;
    std::function<void(const std::string&, const Value&)> handler;
    FakeDaemon daemon{loop.context(), folder.path("s"),
        [this](const std::string& method, const Value& request) { handler(method, request); }};
    DaemonClient client{loop, folder.path("s")};
};

TEST_F(DaemonClientTest, AnswersReachTheirCallsInAnyOrder)
{
    std::vector<Value> requests;
    handler = [&](const std::string&, const Value& request) {
        requests.push_back(request);
        if (requests.size() == 2) {
            daemon.answer(requests[1], "second");
            daemon.answer(requests[0], "first");
        }
    };
    std::vector<std::string> answers;
    const auto note = [&](const Result<Value>& result) {
        answers.push_back(result.value());
        if (answers.size() == 2) {
            done();
        }
    };
    serve([&] {
        client.call("setNetworkSet:", Value::array({"home"}), note);
        client.call("version:", Value::array(), note);
    });
    EXPECT_THAT(answers, ElementsAre("second", "first"));
    EXPECT_EQ(requests[0].at("params"), Value::array({"home"}));
    EXPECT_EQ(requests[0].at("jsonrpc"), "2.0");
}

TEST_F(DaemonClientTest, ARefusalWithoutIdFailsTheOldestCall)
{
    handler = [&](const std::string&, const Value&) {
        daemon.send("{\"jsonrpc\":\"2.0\",\"id\":null,\"error\":{\"code\":-32700,\"message\":\"line too long\"}}\n");
    };
    serve([&] { client.call("x", Value::array(), expectError(ErrorCode::Internal, "line too long")); });
}

TEST_F(DaemonClientTest, WhatIsNoMessageIsPassedOver)
{
    handler = [&](const std::string&, const Value& request) {
        daemon.send(
            "\n{{{\n\xFF\xFE\n[1]\n\"text\"\n{\"id\":99,\"result\":1}\n{\"id\":\"1\",\"result\":1}\n{\"id\":1}\n");
        daemon.send("{\"method\":\"daemonResponse:\"}\n{\"method\":\"daemonResponse:\",\"params\":[7]}\n");
        daemon.send(std::string(200'000, '[') + '\n');
        daemon.answer(request, true);
    };
    client.setEvents({{}, {}, [](const Dictionary&) { ADD_FAILURE() << "no envelope was sent"; }});
    serve([&] { client.call("exists:", Value::array(), expectValue(true)); });
}

TEST_F(DaemonClientTest, ADaemonThatLeavesFailsItsCallsAndIsFoundAgain)
{
    int connects = 0;
    int losses = 0;
    handler = [&](const std::string& method, const Value& request) {
        if (method == "leave") {
            daemon.hangUp();
        } else {
            daemon.answer(request, "back");
        }
    };
    std::optional<ErrorCode> failure;
    client.setReconnectInterval(0.01);
    client.setEvents({[&] {
                          if (++connects == 1) {
                              client.call("leave", Value::array(),
                                  [&](const Result<Value>& result) { failure = result.error().code; });
                          } else {
                              client.call("stay", Value::array(), expectValue("back"));
                          }
                      },
        [&](const Error&) { ++losses; }, {}});
    serve([] {});
    EXPECT_EQ(failure, ErrorCode::Unavailable);
    EXPECT_EQ(connects, 2);
    EXPECT_EQ(losses, 1);
}

TEST_F(DaemonClientTest, WithoutADaemonConnectingFailsOnceAndCallsFailAtOnce)
{
    for (const std::string& path : {folder.path("nobody"), folder.path(std::string(200, 'x')), std::string()}) {
        DaemonClient lonely(loop, path);
        lonely.setReconnectInterval(0.001);
        int failures = 0;
        lonely.connect([&](const Result<void>& outcome) {
            failures += outcome ? 0 : 1;
            done();
        });
        loop.run();
        EXPECT_EQ(failures, 1) << path;
        lonely.call("x", Value::array(), expectError(ErrorCode::Unavailable, "not connected to the daemon"));
    }
}

} // namespace
} // namespace meridal
