// SPDX-License-Identifier: Apache-2.0
// What applications have used, as the daemon keeps it going and as clients get it.

#include "daemon/ApplicationService.h"
#include "daemon/MeridalHistory.h"
#include "daemon/Watches.h"
#include "tests/daemon/DaemonFixture.h"
#include "wire/Methods.h"

#include <gmock/gmock.h>

namespace meridal::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class Applications : public DaemonTest {
protected:
    Applications() : DaemonTest(true)
    {
        machine.processes().bundles = {{42, "/usr/bin/worker"}};
        machine.visibility().owners = {{1, 0}, {42, 1000}};
    }
    void begin()
    {
        start();
        house.applications.addTo(
            methods, watches, [this] { daemon->updateProcesses(); },
            [this](const Peer& peer) { return daemon->viewerOf(peer); });
    }
    Value ask(const Value& parameters = {}, const Peer& peer = user(0))
    {
        const auto answer = house.applications.totals(parameters, peer);
        return answer ? *answer : Value(answer.error().message);
    }
    static std::vector<std::string> namesIn(const Value& page)
    {
        std::vector<std::string> names;
        for (const Value& group : page.at("groups")) {
            names.push_back(group.at("group"));
        }
        return names;
    }

    MeridalHistory methods{machine.runtime.mainQueue()};
    Watches watches{machine.runtime, methods};
};

TEST_F(Applications, AreReadNowAndThenWithoutClientsAndWithThemAtTheirPasses)
{
    begin();
    auto& asked = machine.processes().asked;
    machine.runtime.advance(60);
    EXPECT_EQ(asked.size(), 1U + 2) << "every 30 s";
    EXPECT_THAT(asked, testing::Each(ProcessFields::All));
    Client client = connect();
    request(client, 1);
    asked.clear();
    machine.runtime.advance(70);
    EXPECT_GE(asked.size(), 30U);
    EXPECT_EQ(std::count(asked.begin(), asked.end(), ProcessFields::All), 2);
}

TEST_F(Applications, AreToldPageByPageToWhomTheyMayBe)
{
    begin();
    machine.processes().work(42, {.cpu = 1.5, .read = 100});
    machine.runtime.advance(2);
    const Value first = ask({{"limit", 3}});
    EXPECT_THAT(namesIn(first), ElementsAre("other", "kernel", "name:launchd"));
    EXPECT_EQ(first["more"], true);
    const Value second = ask({{"after", first["next"]}});
    ASSERT_THAT(namesIn(second), ElementsAre("exe:/usr/bin/worker"));
    const Value& group = second["groups"][0];
    EXPECT_EQ(group["cpuSystem"], 1.5);
    EXPECT_EQ(group["diskRead"], 100);
    EXPECT_EQ(group["user"], 1000);
    EXPECT_FALSE(group.contains("joules"));
    EXPECT_FALSE(second.contains("next"));
    EXPECT_THAT(ask({{"limit", 0}}).get<std::string>(), HasSubstr("limit"));

    machine.visibility().rule = ProcessRestriction{.exemptGroup = 4};
    machine.runtime.advance(40);
    EXPECT_THAT(namesIn(ask({}, user(1000))), ElementsAre("kernel", "exe:/usr/bin/worker"));
    EXPECT_THAT(namesIn(ask({}, user(1001))), ElementsAre("kernel"));
    EXPECT_EQ(namesIn(ask({}, user(1001, {4}))).size(), 4U);
}

TEST_F(Applications, TheLargestAreNamedAndTheOthersAreOne)
{
    begin();
    machine.processes().work(42, {.cpu = 1.5, .read = 100});
    machine.runtime.advance(40);
    const auto passes = machine.processes().asked.size();
    const Value first = ask({{"largest", 1}, {"passive", true}});
    EXPECT_THAT(namesIn(first), ElementsAre("other", "kernel", "exe:/usr/bin/worker"));
    EXPECT_EQ(first["groups"][2]["diskRead"], 100);
    EXPECT_EQ(first["groups"][0]["processes"], 1) << "that of launchd";
    EXPECT_EQ(first["more"], false);
    machine.processes().work(42, {.cpu = 1.5, .read = 100});
    EXPECT_EQ(ask({{"largest", 1}, {"passive", true}})["groups"], first["groups"]);
    EXPECT_EQ(machine.processes().asked.size(), passes) << "nothing was read on their account";
    EXPECT_EQ(ask({{"largest", 1}})["groups"][2]["diskRead"], 200);
    EXPECT_EQ(machine.processes().asked.size(), passes + 1);

    machine.visibility().rule = ProcessRestriction{.exemptGroup = 4};
    machine.runtime.advance(40);
    EXPECT_THAT(namesIn(ask({{"largest", 1}}, user(1000))), ElementsAre("other", "kernel", "exe:/usr/bin/worker"));
    const Value others = ask({{"largest", 1}}, user(1001));
    EXPECT_THAT(namesIn(others), ElementsAre("other", "kernel"));
    EXPECT_EQ(others["groups"][0]["diskRead"], 0) << "nothing of what they may not see";

    house.applications.setRecording(false);
    EXPECT_THAT(ask({{"largest", 1}}).get<std::string>(), HasSubstr("not recorded"));
    house.applications.setRecording(true);
    machine.runtime.advance(40);
    machine.processes().work(42, {.read = 50});
    machine.runtime.advance(40);
    EXPECT_EQ(ask({{"largest", 1}})["groups"][2]["diskRead"], 250) << "of the daemon's life";
    for (const Value& wrong : {Value{{"largest", 0}}, Value{{"largest", 513}}, Value{{"largest", 2}, {"after", 1}}}) {
        EXPECT_THAT(ask(wrong).get<std::string>(), HasSubstr("largest"));
    }
}

TEST_F(Applications, AreWatched)
{
    begin();
    const auto before = house.applications.state(user(0));
    machine.processes().work(42, {.cpu = 1});
    EXPECT_EQ(house.applications.state(user(0)), before) << "a second old at most";
    machine.runtime.advance(1);
    const auto now = house.applications.state(user(0));
    const Value changes = ApplicationService::changedGroups(*before, *now);
    EXPECT_THAT(namesIn(changes), ElementsAre("exe:/usr/bin/worker"));
    EXPECT_TRUE(ApplicationService::changedGroups(*now, *now).is_null());
    EXPECT_EQ(ApplicationService::changedGroups(*now, {{"groups", Value::array()}})["gone"].size(), 4U);
    EXPECT_EQ(namesIn(ApplicationService::changedGroups(nullptr, *now)).size(), 4U);
}

} // namespace
} // namespace meridal::test
