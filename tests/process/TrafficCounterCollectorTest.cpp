// SPDX-License-Identifier: Apache-2.0
#include "collectors/process/TrafficCounterCollector.h"
#include "tests/process/ProcessFixture.h"

#include <gtest/gtest.h>

namespace meridal::test {
namespace {

class TrafficCounterCollectorTest : public ProcessFixture {
protected:
    TrafficCounterCollectorTest()
    {
        set(1, 0);
        set(42);
        set(43);
        update();
        counting().refusal.reset();
    }
    FakeTrafficCounters& counting() { return machine.trafficCounters(); }
    /// Counts one interval; started at the first.
    void process()
    {
        if (counting().begun == 0) {
            ASSERT_TRUE(counters.start());
        }
        counters.process();
    }
    /// What the next reading tells of a process, by itself one of the fixture's.
    TrafficCount& counted(std::int32_t pid, std::uint64_t received, std::uint64_t sent)
    {
        TrafficCount count;
        count.process = {pid, static_cast<std::uint64_t>(pid)};
        count.bytesReceived = received;
        count.bytesSent = sent;
        count.packetsReceived = received > 0 ? 1U : 0U;
        count.packetsSent = sent > 0 ? 1U : 0U;
        counting().next.counts.push_back(count);
        return counting().next.counts.back();
    }
    /// Of one that was never in the table.
    void countedBrief(std::int32_t pid, std::uint64_t sent, const std::vector<std::int32_t>& ancestors,
        const std::string& name = "brief")
    {
        TrafficCount& count = counted(pid, 0, sent);
        count.name = name;
        for (std::size_t i = 0; i < ancestors.size(); ++i) {
            count.ancestors[i] = {ancestors[i], static_cast<std::uint64_t>(ancestors[i])};
        }
    }
    /// The list by upload: names and bytes, those that moved none left out.
    std::vector<std::pair<std::string, double>> uploads(const ProcessView& view = {})
    {
        std::vector<std::pair<std::string, double>> list;
        for (const ProcessRanking::Row& row : ranked(ProcessFigure::upload, view)) {
            if (*row.totals[0] > 0) {
                list.emplace_back(collector().sharingNameForProcess(*row.item, view.grouped), *row.totals[0]);
            }
        }
        return list;
    }
    using Uploads = std::vector<std::pair<std::string, double>>;
    void crossed(std::uint64_t received, std::uint64_t sent)
    {
        counting().next.interfaceBytesReceived = received;
        counting().next.interfaceBytesSent = sent;
    }

    /// What is the kernel's of an interval in which so much came over the interfaces.
    double kernelDownload(std::uint64_t crossing)
    {
        crossed(crossing, 0);
        process();
        return counters.latest().kernel.download;
    }

    TrafficCounterCollector counters{machine.context, collector()};
};

TEST_F(TrafficCounterCollectorTest, FiguresAreTheBytesOfOneIntervalAndTheSumsClose)
{
    counted(42, 1000, 300);
    counted(42, 500, 0);
    counted(0, 80, 0);
    crossed(2000, 400);
    process();
    EXPECT_THAT(traffic(42), are({1500, 300}));
    EXPECT_EQ(item(42).activity().networkDownloadTime, machine.runtime.wallTime());
    EXPECT_EQ(counters.latest().unattributed.download, 80) << "of processes that found no room";
    EXPECT_EQ(counters.latest().kernel.download, 2000 - 1580);
    EXPECT_EQ(counters.latest().kernel.upload, 100);
    EXPECT_EQ(counters.latest().kernel.linkBytes, 2400 - 1880 - 4 * 14) << "less an Ethernet header for each packet";
    counted(42, 0, 100).barePackets = 1;
    process();
    EXPECT_EQ(counters.latest().processes.linkBytes, 100) << "unless it had none";
    process();
    EXPECT_THAT(traffic(42), are({0, 0}));
    EXPECT_EQ(counters.total().processes.download, 1500);
    EXPECT_EQ(counters.total().frames, 5U);
}

TEST_F(TrafficCounterCollectorTest, AnEndedProcessStandsInTheListOfThatPass)
{
    set({{50, 42, "client"}, {60, 1, "browser"}, {61, 60, "tab"}, {70, 43, "bash"}});
    update();
    counted(61, 0, 9);
    process();
    for (const std::int32_t pid : {50, 60, 61}) {
        source().remove(pid);
    }
    update();
    counted(50, 0, 500);                // known to the pass before
    counted(61, 0, 100);                // so is the head of its group, which has ended, too
    countedBrief(80, 30, {81, 42, 1});  // its parent came and went as well
    countedBrief(82, 20, {70, 43, 1});  // what a shell starts is no part of it
    countedBrief(83, 10, {1});          // an orphan
    countedBrief(42, 7, {99}, "other"); // another process has that pid by now
    counting().next.counts.back().process.startIdentity = 41;
    counted(84, 0, 60); // nothing is known of it
    process();
    EXPECT_EQ(
        uploads(), (Uploads{{"client", 500}, {"tab", 100}, {"brief", 30}, {"brief", 20}, {"brief", 10}, {"other", 7}}));
    EXPECT_EQ(uploads({.grouped = true}),
        (Uploads{{"worker", 530}, {"browser", 100}, {"brief", 20}, {"brief", 10}, {"other", 7}}));
    EXPECT_THAT(traffic(42), are({0, 0}));
    EXPECT_EQ(counters.latest().processes.upload, 667);
    EXPECT_EQ(counters.latest().unattributed.upload, 60);
    EXPECT_THAT(collector().cpuProcesses({}), testing::Not(testing::HasSubstr("brief"))) << "nothing else is known";
    const std::unordered_set<std::int32_t> some = {42, 80};
    EXPECT_EQ(uploads({.shown = &some}), Uploads()) << "nobody knows any more who may see it";

    counted(50, 0, 5); // more of it before the next pass
    process();
    EXPECT_EQ(uploads(), (Uploads{{"client", 5}}));
    update();
    EXPECT_EQ(uploads(), Uploads());
}

TEST_F(TrafficCounterCollectorTest, NetworksOfTheirOwnAreNoPartOfTheSum)
{
    counted(42, 1000, 0).isElsewhere = true;
    crossed(1000, 1000); // forwarded, in and out
    process();
    EXPECT_THAT(traffic(42), are({1000, 0}));
    EXPECT_EQ(counters.elsewhere().download, 1000);
    EXPECT_EQ(counters.latest().processes.download, 0);
    EXPECT_EQ(counters.latest().kernel.download, 1000);
}

TEST_F(TrafficCounterCollectorTest, WhatIsCountedOnDifferentSidesOfAReadingCountsOnce)
{
    counted(42, 1000, 0);
    EXPECT_EQ(kernelDownload(600), 0) << "never negative";
    EXPECT_EQ(kernelDownload(400), 0);
    EXPECT_EQ(kernelDownload(10), 10);
}

TEST_F(TrafficCounterCollectorTest, WhatNoInterfaceEverCarriedDoesNotHideTheKernelsTrafficForEver)
{
    for (int flood = 0; flood < 10; ++flood) { // a queue drops all that the process sends
        counted(42, 0, 1000);
        crossed(0, 0);
        process();
    }
    double kernel = 0;
    for (int reading = 0; reading < 10; ++reading) {
        crossed(0, 500);
        process();
        kernel += counters.latest().kernel.upload;
    }
    EXPECT_EQ(kernel, 5000 - 1000) << "what one reading held may still be on its way";
}

TEST_F(TrafficCounterCollectorTest, TheKernelsShareGivesBackWhatAProcessClaimsLater)
{
    EXPECT_EQ(kernelDownload(1010), 1010) << "nothing tells that it waits";
    counted(42, 1000, 0);
    for (int reading = 0; reading < 3; ++reading) { // until it is clear that no interface will count it
        EXPECT_EQ(kernelDownload(0), 0);
    }
    EXPECT_EQ(counters.total().kernel.download, 10);
    EXPECT_EQ(counters.total().processes.download, 1000);
}

} // namespace
} // namespace meridal::test
