// SPDX-License-Identifier: Apache-2.0
// All processes as clients get them: asked for once, and watched.

#include "daemon/ProcessTableService.h"
#include "daemon/MeridalHistory.h"
#include "daemon/Watches.h"
#include "tests/daemon/DaemonFixture.h"
#include "wire/Methods.h"

#include <gmock/gmock.h>

namespace meridal::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

struct ToldArguments final : ProcessInspection {
    std::optional<std::string> arguments(std::int32_t pid) override
    {
        ++asked;
        return "worker" + std::string(1, '\0') + std::to_string(pid) + std::string(1, '\0');
    }
    ProcessInsight inspect(std::int32_t) override
    {
        return {.executable = "/usr/bin/worker", .workingDirectory = "/home/anna", .descriptors = 12};
    }
    int asked = 0;
};

struct ToldSockets final : ProcessConnections {
    std::span<const ConnectionRecord> readConnections(std::span<const std::int32_t>) override { return {}; }
    std::vector<ProcessSocket> socketsOf(std::int32_t, std::size_t) override
    {
        const ProcessSocket one{.protocol = 6, .host = "192.0.2.7", .port = 443, .bytesReceived = 100, .bytesSent = 5};
        return {{.protocol = 17, .host = "192.0.2.9", .port = 53}, one, one};
    }
};

class ProcessTables : public DaemonTest {
protected:
    ProcessTables()
    {
        auto told = std::make_unique<ToldArguments>();
        inspection = told.get();
        machine.host.processInspection = std::move(told);
        machine.host.processConnections = std::make_unique<ToldSockets>();
        static_cast<FakeUserRights&>(*machine.host.userRights).names = {{1000, "anna"}};
        for (const std::int32_t pid : {43, 44}) {
            machine.processes().set(FakeProcessSource::process(pid));
        }
        for (const std::int32_t pid : {42, 43, 44}) {
            machine.processes().row(pid).user = 1000;
        }
        machine.visibility().owners = {{1, 0}, {42, 1000}, {43, 1000}, {44, 1001}};
        start();
        house.processTable.addTo(methods, watches,
            {.pass = [this] { daemon->updateProcesses(); },
                .viewerOf = [this](const Peer& peer) { return daemon->viewerOf(peer); },
                .viewOf = [this](const auto& viewer, bool grouped) { return daemon->viewOf(viewer, grouped); }});
    }
    Value ask(const char* method, const Value& parameters, const std::shared_ptr<FakeClient>& who)
    {
        Value answer;
        methods.call(method, parameters, {who->peer(), who},
            [&answer](const Result<Value>& result) { answer = result ? *result : Value(result.error().message); });
        machine.runtime.runDue();
        if (answer.is_null()) {
            machine.runtime.advance(1.1); // for rates, of which there were none
        }
        return answer;
    }
    Value table(const Value& parameters) { return ask(method::processesTable, parameters, client); }
    Value watch(const Value& parameters) { return ask(method::processesWatch, parameters, client); }
    static std::vector<int> pidsOf(const Value& answer)
    {
        std::vector<int> pids;
        for (const Value& row : answer.value("processes", Value::array())) {
            pids.push_back(row.at("pid").get<int>());
        }
        return pids;
    }
    /// After the next passes.
    std::vector<Value> told(double seconds = 2)
    {
        machine.runtime.advance(seconds);
        std::vector<Value> all;
        for (const EnvelopePtr& each : std::exchange(client->received, {})) {
            all.push_back(each->dictionary());
        }
        return all;
    }
    void work(int pid, double cpu) { machine.processes().work(pid, {.cpu = cpu}); }

    MeridalHistory methods{machine.runtime.mainQueue()};
    Watches watches{machine.runtime, methods};
    std::shared_ptr<FakeClient> client = std::make_shared<FakeClient>();
    ToldArguments* inspection = nullptr;
};

TEST_F(ProcessTables, HaveRatesAndNamesFromTheFirstAnswerOn)
{
    work(43, 0.5);
    const Value answer = table({{"sort", "cpu"}, {"limit", 2}, {"filter", {{"user", "anna"}}}});
    EXPECT_EQ(answer["total"], 3);
    EXPECT_EQ(answer["more"], true);
    ASSERT_THAT(pidsOf(answer), testing::SizeIs(2));
    const Value& first = answer["processes"][0];
    EXPECT_EQ(first["user"], "anna");
    EXPECT_EQ(first["uid"], 1000);
    EXPECT_TRUE(first.contains("wakeups") && first.contains("diskRead")) << first;
    EXPECT_THAT(first["command"].get<std::string>(), testing::StartsWith("worker 4"));
    EXPECT_EQ(inspection->asked, 2) << "of those alone that are shown";
    table({{"limit", 3}, {"columns", {"command"}}});
    table({{"limit", 3}, {"columns", {"command"}}});
    EXPECT_LE(inspection->asked, 4) << "once each";
}

TEST_F(ProcessTables, RefuseWhatMakesNoSense)
{
    EXPECT_THAT(table({{"sort", "age"}}).get<std::string>(), HasSubstr("there is no column \"age\" but pid, parent"));
    EXPECT_THAT(table({{"filter", {{"regex", true}, {"command", "(a"}}}}).get<std::string>(),
        HasSubstr("in \"filter\": \"command\": not a pattern"));
    EXPECT_THAT(table({{"columns", "pid"}}).get<std::string>(), HasSubstr("list of texts"));
    EXPECT_THAT(watch({{"interval", 2}, {"limit", 0}}).get<std::string>(), HasSubstr("\"limit\""));
    EXPECT_THAT(watch({{"interval", 0.5}}).get<std::string>(), HasSubstr("\"interval\""));
    EXPECT_EQ(watches.count(), 0U);
}

TEST_F(ProcessTables, ShowNobodyWhatTheHostWouldNot)
{
    machine.visibility().rule = ProcessRestriction{.exemptGroup = 5};
    machine.runtime.advance(20); // until it has been asked about
    client = std::make_shared<FakeClient>(user(1000));
    EXPECT_THAT(pidsOf(table({{"sort", "pid"}})), ElementsAre(42, 43));
    EXPECT_EQ(table({})["total"], 2);
    client = std::make_shared<FakeClient>(user(0));
    EXPECT_THAT(pidsOf(table({{"sort", "pid"}})), ElementsAre(1, 42, 43, 44));
}

TEST_F(ProcessTables, KnowEverythingOfOneProcessAndTellItsOwnerMore)
{
    machine.processes().set(FakeProcessSource::process(50, 42, "child"));
    const auto details = [this](int pid) { return ask(method::processDetails, {{"pid", pid}}, client); };
    details(42);
    work(42, 1);
    machine.runtime.advance(2);
    const Value known = details(42);
    EXPECT_EQ(known["parents"], json(R"([{"pid":1,"name":"launchd"}])"));
    EXPECT_EQ(known["children"], json(R"([{"pid":50,"name":"child"}])"));
    EXPECT_EQ(known["group"]["processes"], 2);
    EXPECT_EQ(known["command"], "worker 42");
    EXPECT_GE(known["course"].size(), 2U);
    EXPECT_EQ(known["descriptors"], 12);
    EXPECT_EQ(known["workingDirectory"], "/home/anna");
    EXPECT_EQ(known["connections"], json(R"([
        {"host":"192.0.2.7","protocol":"tcp","connections":2,"ports":[443],"received":200,"sent":10},
        {"host":"192.0.2.9","protocol":"udp","connections":1,"ports":[53]}])"));
    machine.runtime.advance(300);
    EXPECT_LE(details(42)["course"].size(), 1U + ProcessDetails::courseLength / 2) << "of the last minute";
    const Value others = details(44);
    EXPECT_EQ(others["command"], "worker 44");
    EXPECT_FALSE(others.contains("workingDirectory") || others.contains("connections")) << "another user's";
    EXPECT_THAT(details(99).get<std::string>(), HasSubstr("no such process"));
    EXPECT_THAT(ask(method::processDetails, {}, client).get<std::string>(), HasSubstr("\"pid\""));
}

TEST_F(ProcessTables, TellWatchersWhatChangedOfTheRowsTheySee)
{
    const Value parameters = {{"columns", {"cpu", "name"}}, {"sort", "cpu"}, {"limit", 2}};
    EXPECT_EQ(pidsOf(watch(parameters)).size(), 2U);
    told(4);
    work(43, 1);
    work(44, 0.5);
    auto news = told();
    ASSERT_EQ(news.size(), 1U);
    EXPECT_THAT(pidsOf(news[0]), ElementsAre(43, 44));
    EXPECT_EQ(news[0]["order"], Value({43, 44}));
    EXPECT_EQ(news[0]["processes"][0]["cpu"], 50.0);
    EXPECT_EQ(news[0]["gone"], Value({42})) << "of whom the other one was the first already";

    work(43, 1);
    work(44, 0.8);
    news = told();
    ASSERT_EQ(news.size(), 1U);
    EXPECT_THAT(pidsOf(news[0]), ElementsAre(44)) << news[0] << "what is as it was is not told again";
    EXPECT_FALSE(news[0].contains("order") || news[0].contains("gone"));

    machine.processes().remove(43);
    work(44, 0.8);
    news = told();
    ASSERT_EQ(news.size(), 1U);
    EXPECT_EQ(news[0]["gone"], Value({43}));
    EXPECT_EQ(news[0]["total"], 3);
    told();
    EXPECT_TRUE(told().empty()) << "nothing moves any more";
}

TEST_F(ProcessTables, WatchersAreServedByThePassesThereAreAndKeepThemGoing)
{
    auto& asked = machine.processes().asked;
    watch({{"interval", 2}});
    told(1);
    asked.clear();
    told(20);
    EXPECT_EQ(asked.size(), 10U);
    EXPECT_THAT(asked, testing::Each(ProcessFields::All));
    watch({{"interval", 0}});
    asked.clear();
    work(42, 1);
    EXPECT_TRUE(told(20).empty());
    EXPECT_THAT(asked, testing::Each(ProcessFields::Cpu)) << "as without";
    watch({{"interval", 10}});
    client.reset();
    EXPECT_EQ(watches.count(), 0U);
    EXPECT_FALSE(house.processTable.isWatched());
}

} // namespace
} // namespace meridal::test
