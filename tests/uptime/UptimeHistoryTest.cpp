// SPDX-License-Identifier: Apache-2.0
#include "tests/uptime/UptimeFixture.h"

namespace meridal::test {
namespace {

TEST_F(UptimeTest, EveryKindOfEndIsToldApart)
{
    startDaemon();
    runtime().advance(1000);
    shutDown(); // 1: in order

    bootAgain(2);
    runtime().advance(1500);
    crash(); // 2: without a farewell

    bootAgain(3);
    sleepFor(500);
    runtime().advance(700);
    crash(); // 3: after a sleep, whose time is still in the shutdown column

    bootAgain(4);
    runtime().advance(50);
    fallAsleep();
    const double lastSeen = now();
    runtime().sleepMachine(90'000);
    daemon.reset(); // 4: the battery ran empty

    bootAgain(5);
    runtime().advance(10);
    shutDown(); // an upgrade of the daemon alone
    startDaemon();
    runtime().advance(2000);
    crash(); // 5: the machine crashed later

    bootAgain(6);
    sleepFor(20);
    const Value answer = ask().value();
    EXPECT_EQ(ends(answer), (Ends{"running", "crash", "asleep", "crash", "crash", "orderly"}));
    const Value& boots = answer["boots"];
    EXPECT_EQ(boots[0]["shutdown"], nullptr) << "asleep once, not over";
    EXPECT_EQ(boots[2]["shutdown"], lastSeen);
    EXPECT_NEAR(boots[2]["length"], 50, 1);
    EXPECT_EQ(boots[3]["asleep"], 500);
    EXPECT_NEAR(boots[4]["length"], 1200, 1) << "the last note before the crash";
    EXPECT_NEAR(boots[5]["length"], 1000, 1);
    EXPECT_EQ(answer["current"]["asleep"], 20);
    EXPECT_EQ(answer["ends"], (Value{{"orderly", 1}, {"crash", 3}, {"asleep", 1}}));
    EXPECT_EQ(ask({{"limit", 1}}).value()["ends"], answer["ends"]) << "of all pages";
    EXPECT_EQ(
        ask({{"from", boots[2]["started"]}}).value()["ends"], (Value{{"orderly", 0}, {"crash", 1}, {"asleep", 1}}));
    EXPECT_FALSE(answer["more"]);
}

TEST_F(UptimeTest, ANoteOnTheWayToSleepDoesNotMakeItACrash)
{
    startDaemon();
    runtime().advance(UptimeService::noteInterval - 2);
    fallAsleep();
    runtime().advance(3); // across a note
    runtime().sleepMachine(90'000, true);
    runtime().advance(40); // it half woke for a moment, as some machines do
    runtime().sleepMachine(90'000, true);
    crash();

    bootAgain(2);
    EXPECT_EQ(ends(ask().value()), (Ends{"running", "asleep"}));
    fallAsleep();
    runtime().advance(2000); // called off, and nobody said so
    crash();

    bootAgain(3);
    const Value boots = ask().value()["boots"];
    EXPECT_EQ(boots[1]["end"], "crash");
    EXPECT_NEAR(boots[1]["length"], 1800, 1) << "the notes went on";
}

TEST_F(UptimeTest, RowsWithoutARecordAreToldApartByTheirTimes)
{
    startDaemon();
    daemon->databases.databaseWithPath(machine.context.paths.uptimeDatabase())
        ->queryDatabase([](SQLiteConnection& connection) {
            for (const char* sql : {"delete from uptime", "delete from boot_records",
                     "insert into uptime values (1000, 2000), (3000, 0), (5000, 5500), (9000, 8000)",
                     "insert into sleep (start, end) values (1100, 1300), (5500, 5700)"}) {
                ASSERT_TRUE(connection.execute(sql));
            }
        });
    const Value answer = ask().value();
    EXPECT_EQ(answer["ends"], (Value{{"orderly", 2}, {"crash", 2}, {"asleep", 0}}));
    const Value& boots = answer["boots"];
    ASSERT_EQ(boots.size(), 4U);
    EXPECT_EQ(boots[0]["length"], 0) << "shut down before it started: the clock was set";
    EXPECT_EQ(boots[1]["end"], "crash") << "it woke from its last sleep";
    EXPECT_EQ(boots[2]["end"], "crash");
    EXPECT_EQ(boots[3]["end"], "orderly");
    EXPECT_EQ(boots[3]["asleep"], 200);
    EXPECT_EQ(boots[3]["length"], 1000);
}

TEST_F(UptimeTest, WhoAsksPassivelyDoesNotHaveTheFileReadEachTime)
{
    startDaemon();
    runtime().advance(100);
    const Value passive = {{"passive", true}};
    const Value first = ask(passive).value();
    const auto addBoot = [this] {
        daemon->databases.databaseWithPath(machine.context.paths.uptimeDatabase())
            ->queryDatabase([](SQLiteConnection& connection) {
                ASSERT_TRUE(connection.execute("insert into uptime values (1000, 2000)"));
            });
    };
    addBoot();
    runtime().advance(10);
    const Value second = ask(passive).value();
    EXPECT_EQ(second["ends"]["orderly"], 0) << "as it was read";
    EXPECT_NEAR(second["current"]["uptime"].get<double>(), first["current"]["uptime"].get<double>() + 10, 0.1);
    EXPECT_NEAR(second["boots"][0]["length"].get<double>(), first["boots"][0]["length"].get<double>() + 10, 0.1);
    EXPECT_EQ(ask({{"passive", true}, {"limit", 1}}).value()["ends"]["orderly"], 1) << "another question";
    EXPECT_TRUE(ask(passive));
    sleepFor(20);
    EXPECT_EQ(ask(passive).value()["current"]["asleep"], 20);
    addBoot();
    runtime().advance(UptimeService::keptFor);
    EXPECT_EQ(ask(passive).value()["ends"]["orderly"], 2);
}

TEST_F(UptimeTest, AvailabilityLeavesSleepOut)
{
    startDaemon();
    const double begin = now();
    runtime().advance(10'000);
    shutDown();
    runtime().advance(9'900);
    bootAgain(2);
    sleepFor(5'000);
    runtime().advance(10'000);
    EXPECT_NEAR(ask().value()["availability"], 2.0 / 3, 0.001) << "of 35,000 s asleep 5,000, up 20,000";
    EXPECT_NEAR(ask({{"from", begin + 20'000}}).value()["availability"], 1.0, 0.001);
    EXPECT_NEAR(ask({{"from", begin + 5'000}, {"until", begin + 15'000}}).value()["availability"], 0.5, 0.001);
    EXPECT_EQ(ask({{"from", 10}, {"until", 20}}).value()["availability"], nullptr) << "nothing is known of then";
    EXPECT_NEAR(ask().value()["longest"], 15'000, 1);
    EXPECT_NEAR(ask({{"until", begin + 15'000}}).value()["longest"], 10'000, 1);
}

TEST_F(UptimeTest, PagesAreBoundedAndJoinUp)
{
    for (int i = 0; i < 25; ++i) {
        boot("boot " + std::to_string(100 + i));
        startDaemon();
        runtime().advance(60);
        shutDown();
    }
    startDaemon();
    std::vector<double> seen;
    Value parameters = {{"limit", 10}};
    for (bool more = true; more;) {
        const Value page = ask(parameters).value();
        for (const Value& row : page["boots"]) {
            seen.push_back(row["boot"]);
        }
        ASSERT_LE(page["boots"].size(), 10U);
        parameters["before"] = seen.back();
        more = page["more"];
    }
    EXPECT_EQ(seen.size(), 25U);
    EXPECT_TRUE(std::is_sorted(seen.rbegin(), seen.rend()));
    EXPECT_EQ(ask(Value::array({{{"limit", 1}}})).value()["boots"].size(), 1U);
}

TEST_F(UptimeTest, WrongParametersAreNamed)
{
    startDaemon();
    const auto code = [this](const Value& parameters) { return ask(parameters).error().code; };
    for (const Value& wrong :
        {Value("x"), Value{{"limit", 0}}, Value{{"limit", 501}}, Value{{"limit", 1.5}}, Value{{"from", "yesterday"}},
            Value{{"before", Value::object()}}, Value{{"from", 2}, {"until", 1}}, Value::array({1, 2})}) {
        EXPECT_EQ(code(wrong), ErrorCode::InvalidArgument) << wrong;
    }
    EXPECT_EQ(code({{"before", 12345}}), ErrorCode::NotFound);
    EXPECT_TRUE(ask(Value::array()));
    EXPECT_TRUE(ask({{"from", nullptr}}));
}

} // namespace
} // namespace meridal::test
