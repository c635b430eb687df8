// SPDX-License-Identifier: Apache-2.0
#include "collectors/process/FlowTable.h"
#include "tests/support/FrameBytes.h"

#include <gtest/gtest.h>

#include <map>

namespace meridal::test {
namespace {

using Kind = SocketOwner::Kind;

/// Owners by local port, as a test has them.
struct FakeOwners final : SocketOwners {
    void beginBatch() override { }
    SocketOwner ownerOf(const SocketFlow& flow) override
    {
        ++questions;
        return byPort[flow.localPort];
    }
    bool search() override
    {
        for (const auto& [port, owner] : foundBySearch) {
            byPort[port] = owner;
        }
        return !std::exchange(foundBySearch, {}).empty();
    }
    std::map<std::uint16_t, SocketOwner> byPort;
    std::map<std::uint16_t, SocketOwner> foundBySearch;
    int questions = 0;
};

class FlowTableTest : public ::testing::Test {
protected:
    static DecodedFrame frame(FrameDirection direction, std::uint16_t source, std::uint16_t destination)
    {
        return {.direction = direction,
            .ports = FramePorts::There,
            .isIP = true,
            .protocol = 17,
            .bytes = 100,
            .linkBytes = 114,
            .sourcePort = source,
            .destinationPort = destination};
    }
    static DecodedFrame sent(std::uint16_t port) { return frame(FrameDirection::Sent, port, 53); }
    static DecodedFrame received(std::uint16_t port) { return frame(FrameDirection::Received, 53, port); }
    void settle(double seconds = 0.1)
    {
        now += seconds;
        table.settle(now, batch);
    }
    void count(std::initializer_list<DecodedFrame> frames, double seconds = 0.1)
    {
        for (const DecodedFrame& each : frames) {
            table.count(each);
        }
        settle(seconds);
    }
    /// One frame of a flow whose port belongs to so and so.
    void send(std::uint16_t port, SocketOwner owner, double seconds = 0.1)
    {
        owners.byPort[port] = owner;
        count({sent(port)}, seconds);
    }
    void receive(std::uint16_t port, SocketOwner owner)
    {
        owners.byPort[port] = owner;
        count({received(port)});
    }
    double pidBytes(std::int32_t pid) const
    {
        double sum = 0;
        for (const PacketRecord& record : batch.packets.records()) {
            sum += record.pid == pid ? record.downloadBytes + record.uploadBytes : 0;
        }
        return sum;
    }
    static double bytes(const TrafficShare& share) { return share.download + share.upload; }

    FakeOwners& owners = *new FakeOwners;
    FlowTable table{std::unique_ptr<SocketOwners>(&owners)};
    TrafficBatch batch;
    double now = 1000;
};

TEST_F(FlowTableTest, TheOwnerIsAskedForOnceAFlowAndNotOnceAFrame)
{
    owners.byPort[5000] = {Kind::Process, 42};
    for (int i = 0; i < 1000; ++i) {
        table.count(sent(5000));
        table.count(received(5000));
    }
    settle();
    ASSERT_EQ(batch.packets.records().size(), 1U);
    EXPECT_EQ(batch.packets.records()[0].pid, 42);
    EXPECT_EQ(batch.packets.records()[0].uploadBytes, 100'000);
    EXPECT_EQ(batch.packets.records()[0].downloadBytes, 100'000);
    EXPECT_EQ(owners.questions, 1);
    EXPECT_EQ(batch.frames, 2000U);
    EXPECT_EQ(batch.processes.linkBytes, 228'000);
}

TEST_F(FlowTableTest, FramesThatWereLostAreNobodysAtTheMeanOfThoseThatCame)
{
    table.countLost(7);
    settle();
    EXPECT_EQ(bytes(batch.unattributed), 0) << "of what size?";
    owners.byPort[5000] = {Kind::Process, 42};
    for (int i = 0; i < 10; ++i) {
        table.count(sent(5000));
    }
    settle();
    for (int i = 0; i < 5000; ++i) {
        settle(); // quiet for minutes
    }
    table.countLost(5);
    settle();
    EXPECT_DOUBLE_EQ(batch.unattributed.upload, 500);
    EXPECT_DOUBLE_EQ(batch.unattributed.linkBytes, 570);
}

TEST_F(FlowTableTest, BytesWaitForAnOwnerThatIsStillBeingLookedFor)
{
    send(5000, {Kind::Pending});
    EXPECT_EQ(pidBytes(42) + bytes(batch.unattributed), 0);
    owners.foundBySearch[5000] = {Kind::Process, 42};
    send(5000, {Kind::Pending});
    EXPECT_EQ(pidBytes(42), 200) << "at once, and nothing was lost";
    send(5001, {Kind::Pending});
    settle(FlowTable::patience);
    EXPECT_EQ(bytes(batch.unattributed), 100) << "not for ever";
    EXPECT_EQ(table.waiting(), 0U);
}

TEST_F(FlowTableTest, AConnectionThatWaitsToBeAcceptedIsNotYetTheKernels)
{
    receive(80, {Kind::Process, 1, false}); // who listens
    receive(80, {Kind::Kernel});
    owners.byPort[80] = {Kind::Process, 42};
    settle();
    EXPECT_EQ(pidBytes(42), 200);
    receive(2049, {Kind::Kernel});
    settle(FlowTable::acceptance);
    EXPECT_EQ(bytes(batch.kernel), 100);
}

TEST_F(FlowTableTest, AFlowWithoutASocketMayGetOneSoon)
{
    const auto flowsFor = [this](double seconds) {
        for (double passed = 0; passed < seconds; ++passed) {
            count({received(5000)}, 1);
        }
    };
    owners.byPort[5000] = {Kind::None};
    flowsFor(100);
    EXPECT_EQ(bytes(batch.unattributed), 10'000);
    EXPECT_LT(owners.questions, 100) << "not with every batch";
    owners.byPort[5000] = {Kind::Process, 42};
    flowsFor(3);
    EXPECT_GE(pidBytes(42), 100);
}

TEST_F(FlowTableTest, TheLastFramesOfAClosedConnectionAreItsProcesss)
{
    send(5000, {Kind::Process, 42});
    send(5000, {Kind::None}, 5);
    EXPECT_EQ(pidBytes(42), 200);
    send(5000, {Kind::Process, 43}, 5); // another one took the port
    EXPECT_EQ(pidBytes(43), 100);
}

TEST_F(FlowTableTest, FramesOfAnInterfaceThatCarriesAnotherCountNowhere)
{
    send(5000, {Kind::Elsewhere});
    DecodedFrame echo = sent(0);
    echo.destinationPort = 0;
    echo.ports = FramePorts::None;
    owners.byPort[0] = {Kind::Elsewhere};
    count({echo});
    EXPECT_EQ(bytes(batch.processes) + bytes(batch.kernel) + bytes(batch.unattributed), 0);
    owners.byPort[0] = {Kind::Kernel};
    echo.interface = 2;
    count({echo});
    EXPECT_EQ(bytes(batch.kernel), 100) << "at once: no process is to be waited for";
}

TEST_F(FlowTableTest, FragmentsFollowTheFirstOne)
{
    owners.byPort[5000] = {Kind::Process, 42};
    DecodedFrame first = sent(5000);
    first.ports = FramePorts::FirstFragment;
    first.fragment = 7;
    DecodedFrame later = first;
    later.ports = FramePorts::LaterFragment;
    later.sourcePort = later.destinationPort = 0;
    DecodedFrame stranger = later;
    stranger.fragment = 8;
    count({first, later, later, stranger});
    EXPECT_EQ(pidBytes(42), 300);
    EXPECT_EQ(bytes(batch.unattributed), 100);
}

TEST_F(FlowTableTest, MemoryIsBoundedAndTheSumsStayWhole)
{
    for (std::uint32_t i = 0; i < 3 * FlowTable::mostFlows; ++i) {
        DecodedFrame each = received(static_cast<std::uint16_t>(i));
        each.source[0] = static_cast<std::uint8_t>(i >> 16);
        table.count(each);
    }
    EXPECT_EQ(table.flows(), FlowTable::mostFlows);
    settle();
    EXPECT_EQ(bytes(batch.unattributed), 100.0 * 3 * FlowTable::mostFlows);
    settle(FlowTable::idleTime + 5);
    EXPECT_EQ(table.flows(), 0U);

    TrafficBatch late; // of a fold that does not come
    for (std::int32_t i = 0; i < 200'000; ++i) {
        PacketRecord record;
        record.pid = i / 2;
        record.downloadBytes = 1;
        late.add(record);
    }
    EXPECT_EQ(late.packets.records().size(), PacketBuffer::mostRecords);
    EXPECT_EQ(late.processes.download + late.unattributed.download, 200'000);
}

} // namespace
} // namespace meridal::test
