// SPDX-License-Identifier: Apache-2.0
// What ordinary users name is theirs, for as long as their clients are there; what administrators name is everybody's.

#include "tests/sensors/SensorsFixture.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <string>

namespace meridal::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr std::uint32_t oneUser = 1000;
constexpr std::uint32_t otherUser = 1001;

class SensorClientsTest : public SensorsTest {
protected:
    /// A client asks for sensors, and the host has said whether its user is an administrator.
    Value name(const char* configurations, const SensorClient& client)
    {
        const Value entries = daemon->service.supportedElectricSensors(json(configurations), client, PowerDetail::Fine);
        machine.runtime.runDue();
        return entries;
    }
    std::vector<std::string> seenBy(std::optional<std::uint32_t> uid) { return keysOf(list(PowerDetail::Fine, uid)); }
    Value kept() { return rows("select uuid from client_sensors order by uuid"); }
    void administer(std::uint32_t uid) { static_cast<FakeUserRights&>(*machine.host.userRights).administrator = uid; }

    const ClientSensors::Owner first{.uid = oneUser, .client = &first};
    const ClientSensors::Owner second{.uid = oneUser, .client = &second};
    const ClientSensors::Owner stranger{.uid = otherUser, .client = &stranger};
};

TEST_F(SensorClientsTest, WhatAUserNamesGoesWithTheLastClientThatNamedIt)
{
    measure({{"TC0P", 40}, {"PC0C", 7.26}});
    start();
    const char* const mine = R"([{"key":"TC0P","name":"mine","low":1,"high":90},{"key":"PC0C"}])";
    EXPECT_THAT(name(mine, first), SizeIs(2));
    name(R"([{"key":"TC0P","name":"mine","low":1,"high":90}])", second);
    name(R"([{"key":"TC0P","name":"theirs"}])", stranger);
    name(R"([{"key":"TC0P"}])", {}); // of whom the system does not tell
    machine.runtime.advance(4);
    EXPECT_THAT(seenBy(oneUser), ElementsAre("TC0P", "PC0C"));
    const Value sensor = list(PowerDetail::Averaged, oneUser)[0];
    EXPECT_EQ((std::vector<Value>{sensor["name"], sensor["value"], sensor["high"], sensor["lowest"]}),
        (std::vector<Value>{"mine", 40.0, 90.0, 40.0}));
    EXPECT_EQ(list(PowerDetail::Averaged, oneUser)[1]["value"], 7.3) << "coarse for all but root";
    EXPECT_EQ(list(PowerDetail::Fine, otherUser)[0]["name"], "theirs");
    EXPECT_THAT(seenBy(0), IsEmpty());
    EXPECT_THAT(collector().series(), IsEmpty());

    daemon->service.forget(first);
    EXPECT_THAT(seenBy(oneUser), ElementsAre("TC0P"));
    daemon->service.forget(second);
    daemon->service.forget(second);
    EXPECT_THAT(seenBy(oneUser), IsEmpty());
    name(mine, root);
    EXPECT_THAT(seenBy(oneUser), ElementsAre("TC0P", "PC0C"));
    EXPECT_EQ(list(PowerDetail::Fine, otherUser)[0]["name"], "theirs") << "as its user calls it";
    machine.runtime.advance(40);
    daemon.reset();
    EXPECT_THAT(kept(), SizeIs(2)) << "what root named";
}

TEST_F(SensorClientsTest, AnAdministratorsWishIsKeptHoweverLateItIsKnownForOne)
{
    administer(oneUser);
    measure({{"TC0P", 40}, {"TC1P", 40}});
    start();
    daemon->service.supportedElectricSensors(
        json(R"([{"key":"TC0P","name":"CPU","high":90}])"), first, PowerDetail::Fine);
    EXPECT_THAT(seenBy(oneUser), ElementsAre("TC0P")) << "at once";
    EXPECT_THAT(seenBy(otherUser), IsEmpty());
    daemon->service.forget(first);
    machine.runtime.runDue();
    EXPECT_EQ(list(PowerDetail::Fine, otherUser)[0]["high"], 90.0);
    name(R"([{"key":"TC1P"}])", second);
    EXPECT_THAT(seenBy(otherUser), ElementsAre("TC0P", "TC1P"));

    administer(otherUser);
    machine.runtime.advance(AdministratorCheck::believedFor + 1);
    name(R"([{"key":"TC1P","name":"no longer"}])", first);
    EXPECT_EQ(list(PowerDetail::Fine, otherUser)[1]["name"], "TC1P");
    machine.runtime.advance(40);
    daemon.reset();
    EXPECT_THAT(kept(), SizeIs(2));
}

TEST_F(SensorClientsTest, OneUserLeavesRoomForOthers)
{
    measure({{"TC0P", 40}});
    start();
    Value given = Value::array();
    for (int number = 0; number < 1199; ++number) {
        given.push_back({{"key", std::to_string(1000 + number)}, {"average", {"TC0P"}}});
    }
    const std::string text = given.dump();
    EXPECT_THAT(name(text.c_str(), first), SizeIs(1199)) << "the answer is whole";
    EXPECT_THAT(collector().sensorsFor(oneUser), SizeIs(ClientSensors::mostOfUser));
    for (std::uint32_t uid = otherUser; uid < otherUser + 3; ++uid) {
        name(text.c_str(), ClientSensors::Owner{.uid = uid, .client = this});
    }
    EXPECT_THAT(collector().sensorsFor(otherUser), SizeIs(ClientSensors::mostOfAll - ClientSensors::mostOfUser));
    EXPECT_THAT(collector().sensorsFor(otherUser + 1), IsEmpty());
    name(R"([{"key":"TC0P"}])", root);
    EXPECT_THAT(seenBy(0), ElementsAre("TC0P"));
    daemon->service.forget(first);
    name(R"([{"key":"TC0P"}])", ClientSensors::Owner{.uid = otherUser + 1, .client = this});
    EXPECT_THAT(collector().sensorsFor(otherUser + 1), SizeIs(1));
}

TEST_F(SensorClientsTest, AskingForAllTemperaturesNamesNone)
{
    fit({{sensorOf("T0AA", "coretemp-isa-0000", "Core 0"), 40}, {sensorOf("T0AB", "coretemp-isa-0000", "Core 1"), 41}});
    start();
    EXPECT_THAT(daemon->service.supportedArmSensors(Value::array(), root), SizeIs(2));
    EXPECT_THAT(daemon->service.supportedArmSensors(Value::array(), first), SizeIs(2));
    daemon->service.supportedArmSensors(json(R"([{"key":"Core 1","name":"mine"}])"), root);
    machine.runtime.advance(40);
    EXPECT_THAT(seenBy(oneUser), ElementsAre("Core 1", "T0AA", "T0AB"));

    // A file in which an earlier version kept each.
    rows("insert into client_sensors values ('Core 0', 2, '{\"key\":\"Core 0\",\"name\":\"Core 0\"}')");
    start();
    machine.runtime.advance(40);
    EXPECT_THAT(seenBy(oneUser), ElementsAre("Core 1", "T0AA", "T0AB"));
    daemon.reset();
    EXPECT_THAT(kept(), SizeIs(1));
}

} // namespace
} // namespace meridal::test
