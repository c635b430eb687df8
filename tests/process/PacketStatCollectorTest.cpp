// SPDX-License-Identifier: Apache-2.0
#include "collectors/process/PacketStatCollector.h"
#include "tests/process/ProcessFixture.h"
#include "tests/support/FrameBytes.h"

#include <gtest/gtest.h>

namespace meridal::test {
namespace {

using enum FrameDirection;

class PacketStatCollectorTest : public ProcessFixture {
protected:
    PacketStatCollectorTest()
    {
        set(42);
        set(43);
        update();
    }
    FakePacketTap& tap() { return machine.packetTap(); }
    void deliver(const TappedFrame& frame) { tap().deliver({frame}); }
    void changeNetwork() { machine.notifications.post("STAT_COLLECTION_NETWORK_SETUP_CHANGED", nullptr); }

    PacketStatCollector packets{machine.context, collector()};
};

TEST_F(PacketStatCollectorTest, FiguresAreTheBytesOfOneInterval)
{
    packets.startCaputure();
    for (const auto& frame : {tapped(42, Received, 1000), tapped(42, Sent, 300), tapped(42, Received, 500),
             tapped(0, Received, 70), tapped(4711, Received, 80)}) {
        deliver(frame);
    }
    packets.process();
    EXPECT_THAT(traffic(42), are({1500, 300}));
    EXPECT_EQ(item(42).activity().networkDownloadTime, machine.runtime.wallTime());
    EXPECT_EQ(item(43).activity().networkDownloadTime, 0);
    EXPECT_EQ(packets.latest().unattributed.download, 150) << "no process, or one that came and went";
    packets.process();
    EXPECT_EQ(traffic(42)[0], 0);
    EXPECT_EQ(packets.total().processes.download, 1500);
    EXPECT_EQ(packets.total().frames, 5U);
}

TEST_F(PacketStatCollectorTest, ChangesOfTheNetworkReplaceTheCaptureAndLoseNothing)
{
    packets.startCaputure();
    deliver(tapped(42, Received, 1000));
    changeNetwork();
    EXPECT_EQ(tap().begun, 2);
    EXPECT_EQ(tap().running.size(), 1U);
    deliver(tapped(42, Received, 10));
    packets.process();
    EXPECT_EQ(traffic(42)[0], 1010);
    EXPECT_EQ(packets.statistics().frames, 2U);
    tap().follows = true;
    changeNetwork();
    EXPECT_EQ(tap().begun, 2);
    packets.stopCapture();
    changeNetwork();
    EXPECT_TRUE(tap().running.empty());
}

TEST_F(PacketStatCollectorTest, TheLastBatchOfACaptureCountsAndNothingAfterIt)
{
    packets.startCaputure();
    const auto sink = tap().running[0]->sink;
    const TappedFrame frame = tapped(42, Received, 1000);
    sink->frame(frame); // a batch is under way
    changeNetwork();
    sink->frame(frame); // and the new capture sees this one too
    deliver(frame);
    sink->endBatch();
    packets.process();
    EXPECT_EQ(traffic(42)[0], 2000);
    packets.process();
    EXPECT_EQ(traffic(42)[0], 0);
}

TEST_F(PacketStatCollectorTest, OneInterfaceIsMatchedByPortsOfEitherEnd)
{
    machine.processConnections().rows = {{42, 5000, 80}, {43, 80, 5000}};
    const CaptureInterface interface {
        .bsd = "en0", .mac = "2:0:0:0:0:2"
    };
    ASSERT_EQ(packets.captureInterface(interface), 0);
    // Received by its hardware address: from port 5000 to port 80 here.
    const Frame received = ethernet(0x0800, joined({ipv4(6, 600), ports()}));
    tap().deliver({captured(LinkType::Ethernet, received, 614)}, "en0");
    packets.process();
    EXPECT_EQ(traffic(42)[1], 600) << "the first that matches takes it, and it is the sending end";
    EXPECT_EQ(traffic(43)[0], 0);
    machine.processConnections().rows = {{43, 80, 5000}};
    tap().deliver({captured(LinkType::Ethernet, received, 614)}, "en0");
    packets.process();
    EXPECT_EQ(traffic(43)[0], 600);
    EXPECT_EQ(traffic(42)[1], 0) << "its connection is gone";
    EXPECT_EQ(packets.statistics().frames, 2U);
    packets.stopCapture();
    EXPECT_EQ(packets.statistics().frames, 2U) << "the same after the end";
    tap().refusal = "no such interface";
    EXPECT_LT(packets.captureInterface({.bsd = "en9", .mac = {}}), 0);
}

} // namespace
} // namespace meridal::test
