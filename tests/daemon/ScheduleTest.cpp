// SPDX-License-Identifier: Apache-2.0
#include "daemon/Watchdog.h"
#include "tests/daemon/DaemonFixture.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <vector>

namespace meridal::test {
namespace {

TEST_F(DaemonTest, WithoutClientsItTellsOnceThatItIsReadyAndReadsOnlyTheCpuFigures)
{
    start();
    EXPECT_TRUE(machine.distributed().posted.empty());
    machine.processes().asked.clear();
    machine.runtime.advance(6.5);
    EXPECT_THAT(
        machine.processes().asked, testing::ElementsAre(ProcessFields::Cpu, ProcessFields::Cpu, ProcessFields::Cpu));
    EXPECT_EQ(collector.updateMask(), 0U) << "widened for the pass only";
    EXPECT_EQ(machine.distributed().posted, std::vector<std::string>{"MeridalDaemonXPCReady"});
}

TEST_F(DaemonTest, EachClientGetsItsListsInTheFixedOrderAndClientsShareEqualOnes)
{
    start();
    Client first = connect();
    Client second = connect();
    Client grouped = connect();
    grouped.daemon->enableHierachy();
    request(first, {4, 16, 2, 1});
    request(second, 1);
    request(grouped, 1);
    for (Client* client : {&first, &second, &grouped}) {
        client->link->received.clear();
    }
    machine.runtime.advance(0.7);
    EXPECT_EQ(first.link->types(), (std::vector<int>{1, 2, 16, 4}));
    EXPECT_EQ(first.link->received[0]->dictionary()["processes"].size(), 2U);
    ASSERT_EQ(second.link->types(), std::vector<int>{1});
    ASSERT_EQ(grouped.link->types(), std::vector<int>{1});
    EXPECT_EQ(first.link->received[0], second.link->received[0]) << "one envelope";
    EXPECT_NE(first.link->received[0], grouped.link->received[0]);
}

TEST_F(DaemonTest, TheFirstListOfANewRequestHasFigures)
{
    start();
    Client hasty = connect();
    for (int burst = 0; burst < 10; ++burst) { // more than passes at once
        request(hasty, 1);
    }
    machine.processes().rows.back().physFootprint = 4096;
    const auto memory = [&](const Client& client) {
        return client.link->received[0]->dictionary()["processes"][0]["m"];
    };
    Client client = connect();
    request(client, 2);
    EXPECT_EQ(memory(client), "4096");

    machine.processes().asked.clear();
    machine.processes().rows.back().physFootprint = 8192;
    Client second = connect();
    request(second, 2);
    EXPECT_EQ(memory(second), "4096") << "what was just read is good enough";
    EXPECT_TRUE(machine.processes().asked.empty());
}

TEST_F(DaemonTest, NetworkListsGoToEveryClientWhileAnybodyWantsThem)
{
    start();
    Client asking = connect();
    Client other = connect();
    request(asking, 8);
    EXPECT_EQ(machine.trafficCounters().begun, 1);
    asking.link->received.clear();
    other.link->received.clear();
    machine.runtime.advance(0.7);
    EXPECT_EQ(asking.link->count(8), 1);
    EXPECT_EQ(other.link->count(8), 1);
    EXPECT_TRUE(asking.link->received[0]->dictionary().contains("upload"));
    EXPECT_TRUE(asking.link->received[0]->dictionary().contains("download"));
}

TEST_F(DaemonTest, AClientsFirstIntervalBeginsWithItsRequestAndTheRecordHasAll)
{
    double recorded = 0;
    house.applications.setRecording(true);
    house.traffic.setFolded([&](const TrafficAccount& fold) { recorded += fold.processes.download; });
    start();
    const auto carry = [&](std::uint64_t bytes) {
        TrafficCount count;
        count.process = {42, machine.processes().row(42).startIdentity};
        count.bytesReceived = bytes;
        machine.trafficCounters().next.counts = {count};
        machine.trafficCounters().next.interfaceBytesReceived = bytes;
    };
    const auto shown = [](const Client& client) {
        double sum = 0;
        for (const auto& envelope : client.link->received) {
            const Dictionary list = envelope->dictionary();
            EXPECT_EQ(list["download"][0]["d"], list["attributed"]["d"]);
            sum += list["download"][0]["d"].get<double>();
        }
        return sum;
    };
    machine.runtime.advance(1);
    carry(700);
    Client watching = connect();
    request(watching, 8);
    EXPECT_EQ(shown(watching), 0);
    EXPECT_EQ(recorded, 700);
    for (int second = 0; second < 5; ++second) {
        carry(1000);
        Client passing = connect();
        request(passing, 8);
        machine.runtime.advance(0.5);
        disconnect(passing);
        machine.runtime.advance(0.5);
    }
    EXPECT_EQ(shown(watching), 5000);
    stop(watching, 8);
    carry(60);
    machine.runtime.advance(30);
    EXPECT_EQ(recorded, 5760);
    Client late = connect();
    request(late, 8);
    EXPECT_EQ(shown(late), 0);
}

TEST_F(DaemonTest, AStormOfRequestsCostsAFewPassesAndOthersKeepTheirCadence)
{
    Client steady = startWithRequest(1);
    machine.runtime.advance(5);
    steady.link->received.clear();
    Client storm = connect();
    const auto passes = [&] {
        machine.processes().asked.clear();
        for (int tenth = 0; tenth < 60; ++tenth) {
            for (int i = 0; i < 200; ++i) {
                storm.daemon->startRequestWithKey(2, 1);
                storm.daemon->stopRequestWithKey(2);
            }
            machine.runtime.advance(0.1);
        }
        return machine.processes().asked.size();
    };
    EXPECT_LT(passes(), 6 / 0.6 * 10) << "12,000 requests in 6 seconds";
    EXPECT_GE(steady.link->count(1), 3);
    auto rows = std::exchange(machine.processes().rows, {});
    steady.link->received.clear();
    machine.runtime.advance(4);
    EXPECT_LT(passes(), 6 / 0.6 * 10) << "of a table that cannot be read";
    EXPECT_EQ(steady.link->count(1), 0) << "nor old figures as new ones";
    machine.processes().rows = std::move(rows);
    disconnect(storm);
    machine.runtime.advance(1);
    steady.link->received.clear();
    machine.runtime.advance(8);
    EXPECT_EQ(steady.link->count(1), 4) << "back to every two seconds";
}

TEST_F(DaemonTest, ClocksThatStepAndMachinesThatSleepNeitherStopNorBurstTheSchedule)
{
    Client client = startWithRequest(1);
    machine.runtime.advance(4.7);
    for (const double step : {-86'400.0, 86'400.0 * 365}) {
        client.link->received.clear();
        machine.runtime.stepWallClock(step);
        machine.runtime.advance(4);
        EXPECT_EQ(client.link->count(1), 2);
    }
    client.link->received.clear();
    machine.runtime.sleepMachine(3600);
    machine.runtime.jump(100); // and an overloaded minute and a half after it
    machine.runtime.advance(4);
    EXPECT_LE(client.link->count(1), 4);
}

TEST_F(DaemonTest, ADaemonThatEndsTakesItsTimersWithIt)
{
    Client client = startWithRequest(1);
    daemon.reset();
    const auto passes = machine.processes().asked.size();
    machine.runtime.advance(60);
    EXPECT_EQ(machine.processes().asked.size(), passes);
    EXPECT_TRUE(machine.distributed().posted.empty());
}

TEST(Watchdog, IsToldOfEveryQueueThatRunsAndOfNoneThatDoesNot)
{
    VirtualRuntime runtime;
    std::vector<double> told;
    const double start = runtime.monotonicTime();
    const auto watchdog = startWatchdog(runtime, 30, [&] { told.push_back(runtime.monotonicTime() - start); });
    runtime.advance(45);
    EXPECT_EQ(told, (std::vector<double>{10, 20, 30, 40}));
    runtime.mainQueue().post([&] { runtime.advance(100); }); // a task that takes that long
    runtime.advance(0);
    EXPECT_EQ(std::count_if(told.begin(), told.end(), [](double at) { return at > 45 && at < 145; }), 0);
    runtime.advance(10);
    EXPECT_GE(told.back(), 145);
}

} // namespace
} // namespace meridal::test
