// SPDX-License-Identifier: Apache-2.0
#include "tests/daemon/DaemonFixture.h"

#include <limits>

namespace meridal::test {
namespace {

TEST_F(DaemonTest, ADisconnectReleasesEveryBitAndTrafficIsCountedForWhoStays)
{
    house.applications.setRecording(true);
    start();
    Client leaving = connect();
    Client staying = connect();
    request(leaving, {1, 2, 4, 8, 16, 32, 64, 128});
    request(staying, 8);
    EXPECT_EQ(maskOf(leaving), 255);
    EXPECT_EQ(collector.updateMask(), 31U) << "keys beyond the process lists stay with their connection";
    stop(leaving, 8);
    EXPECT_EQ(maskOf(leaving), 247);
    EXPECT_EQ(collector.updateMask(), 31U) << "the other client still holds it";
    ASSERT_EQ(machine.trafficCounters().running, 1);

    disconnect(leaving);
    EXPECT_EQ(daemon->server().connections().size(), 1U);
    EXPECT_EQ(maskOf(leaving), 0);
    EXPECT_EQ(collector.updateMask(), 8U);
    Client passing = connect();
    stop(passing, 8); // which it never held
    disconnect(passing);
    EXPECT_EQ(machine.trafficCounters().running, 1);

    const auto before = leaving.link->received.size();
    machine.runtime.advance(10);
    EXPECT_EQ(leaving.link->received.size(), before);
    stop(staying, 8);
    EXPECT_EQ(machine.trafficCounters().running, 1) << "for the record";
    EXPECT_FALSE(house.traffic.isWatched());
    EXPECT_EQ(collector.updateMask(), 0U);
}

TEST_F(DaemonTest, MasksOfSeveralBitsAddAndSubtractAsNumbers)
{
    Client client = startWithRequest(3);
    EXPECT_EQ(maskOf(client), 3);
    request(client, 5); // bit 1 is held already: nothing is added
    EXPECT_EQ(maskOf(client), 3);
    stop(client, 7); // partly held: taken off whole
    EXPECT_EQ(maskOf(client), -4);
}

TEST_F(DaemonTest, AbsurdMasksHarmNobodyElse)
{
    Client good = startWithRequest(1);
    Client absurd = connect();
    constexpr std::int64_t smallest = std::numeric_limits<std::int64_t>::min();
    constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();
    for (const std::int64_t key : {smallest, largest, std::int64_t{-1}, std::int64_t{0}, smallest + 1}) {
        request(absurd, key);
        stop(absurd, key);
        stop(absurd, smallest + 1);
    }
    disconnect(absurd);
    EXPECT_EQ(maskOf(good), 1);
    const auto before = good.link->count(1);
    machine.runtime.advance(8.7);
    EXPECT_GE(good.link->count(1), before + 4);
}

TEST_F(DaemonTest, AUserHasSoManyConnectionsAndRootAnyNumber)
{
    start();
    const auto accept = [this](const Peer& peer) {
        return daemon->server().shouldAcceptNewConnection(std::make_shared<FakeClient>(peer));
    };
    std::vector<std::shared_ptr<ExportedConnection>> held;
    for (const Peer& peer : {user(1000), Peer(), user(0)}) {
        for (std::size_t count = 0; count < MRDXPCServer::mostOfUser; ++count) {
            held.push_back(accept(peer));
            ASSERT_TRUE(held.back());
        }
    }
    EXPECT_FALSE(accept(user(1000)));
    EXPECT_FALSE(accept({}));
    EXPECT_TRUE(accept(user(0)));
    EXPECT_TRUE(accept(user(1001)));
    held.front()->ended();
    EXPECT_TRUE(accept(user(1000)));
    EXPECT_FALSE(accept(user(1000)));
    machine.runtime.runDue();
    EXPECT_EQ(daemon->server().connections().size(), 3 * MRDXPCServer::mostOfUser + 2);
}

TEST_F(DaemonTest, ARequestThatArrivesAfterTheEndLeavesNoBitBehind)
{
    start();
    Client client = connect();
    client.daemon->ended();
    client.daemon->startRequestWithKey(2, 1);
    client.daemon->startSMARTStatus();
    machine.runtime.runDue();
    EXPECT_EQ(collector.updateMask(), 0U);
    EXPECT_TRUE(client.link->received.empty());
}

} // namespace
} // namespace meridal::test
