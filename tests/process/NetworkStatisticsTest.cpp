// SPDX-License-Identifier: Apache-2.0
#include "collectors/process/NetworkStatisticsStatCollector.h"
#include "tests/process/ProcessFixture.h"

namespace meridal::test {
namespace {

class NetworkStatisticsTest : public ProcessFixture {
protected:
    NetworkStatisticsTest()
    {
        set(42);
        update();
    }
    std::vector<CountedConnection>& rows() { return machine.networkStatistics().rows; }
    void add(std::uint64_t id, std::uint64_t received = 0, bool isNew = false)
    {
        rows().push_back({.id = id,
            .pid = 42,
            .protocol = 6,
            .localPort = 5000,
            .bytesReceived = received,
            .bytesSent = 50,
            .isNew = isNew});
    }
    double downloadAfter(double seconds)
    {
        machine.runtime.advance(seconds);
        for (CountedConnection& row : rows()) {
            row.countedAt = machine.runtime.monotonicTime();
        }
        statistics.updateStats();
        return traffic(42)[0];
    }

    NetworkStatisticsStatCollector statistics{machine.context, collector()};
};

TEST_F(NetworkStatisticsTest, RatesComeFromTheDifferenceOfTwoCounts)
{
    ASSERT_TRUE(statistics.start());
    add(77, 1000);
    EXPECT_EQ(downloadAfter(2), 0) << "it was there before us: its first counts say nothing";
    rows()[0].bytesReceived = 21'000;
    EXPECT_EQ(downloadAfter(2), 10'000);
    EXPECT_EQ(traffic(42)[1] + item(42).activity().networkUploadTime, 0);
    rows()[0].bytesReceived = 5;
    EXPECT_EQ(downloadAfter(2), 0) << "the counter started over";
    statistics.setFigure(NetworkStatisticsStatCollector::Figure::Bytes);
    rows()[0].bytesReceived = 4005;
    EXPECT_EQ(downloadAfter(2), 4000);
    add(78, 600, true);
    add(79, 0);
    EXPECT_EQ(downloadAfter(2), 600) << "it began since the last update";
    rows()[1].hasEnded = true;
    rows()[1].bytesReceived = 700;
    rows()[2].bytesReceived = 20;
    EXPECT_EQ(downloadAfter(2), 120) << "the last bytes of one, the first of another that had carried none";
    EXPECT_EQ(statistics.connectionItems(), 2U);
    add(80, 500, true);
    rows().back().pid.reset();
    EXPECT_EQ(downloadAfter(2), 0) << "bytes wait for their process";
    rows().back().pid = 42;
    EXPECT_EQ(downloadAfter(2), 500);
}

TEST_F(NetworkStatisticsTest, SlotsAreReusedAndTheTableEnds)
{
    ASSERT_TRUE(statistics.start());
    add(1);
    add(2);
    downloadAfter(2);
    rows()[0].hasEnded = true;
    downloadAfter(2);
    add(3);
    downloadAfter(2);
    EXPECT_EQ(statistics.connections().size(), 2U) << "in the slot of the one that went";
    for (std::uint64_t id = 10; id < 70'000; ++id) {
        add(id);
    }
    downloadAfter(2);
    EXPECT_EQ(statistics.connectionItems(), NetworkStatisticsStatCollector::mostConnections);
    statistics.stop();
    EXPECT_EQ(machine.networkStatistics().running, 0);
    EXPECT_EQ(statistics.connectionItems(), 0U);
}

} // namespace
} // namespace meridal::test
