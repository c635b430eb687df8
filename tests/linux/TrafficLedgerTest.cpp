// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/traffic/TrafficLedger.h"

#include <gtest/gtest.h>

namespace meridal::test {
namespace {

struct TrafficLedgerTest : testing::Test {
    void note(std::uint64_t key, std::uint64_t received, std::uint64_t sent)
    {
        counts.clear();
        ledger.note(
            key, {.bytes = {received, sent}, .packets = {received / 100, sent / 100}, .bare = sent / 100}, counts);
    }

    TrafficLedger ledger{8};
    std::vector<TrafficCount> counts; ///< what the last note told
};

TEST_F(TrafficLedgerTest, TellsWhatMovedAndOfWhom)
{
    const std::uint64_t key = std::uint64_t{5} << BPF_TRAFFIC_START_SHIFT | 42;
    ledger.beginReading();
    EXPECT_FALSE(ledger.knows(key));
    ledger.introduce(
        key, {.name = "fifteen letters", .ancestors = {std::uint64_t{3} << BPF_TRAFFIC_START_SHIFT | 7, 1}});
    note(key, 1000, 500);
    ASSERT_EQ(counts.size(), 1U);
    EXPECT_EQ(counts[0].process.pid, 42);
    EXPECT_EQ(counts[0].process.startIdentity, 5U);
    EXPECT_EQ(counts[0].name, "fifteen letters");
    EXPECT_EQ(counts[0].ancestors[0].pid, 7);
    EXPECT_EQ(counts[0].ancestors[0].startIdentity, 3U);
    EXPECT_EQ(counts[0].ancestors[1].pid, 1);
    EXPECT_EQ(counts[0].ancestors[2].pid, 0);
    EXPECT_EQ(counts[0].bytesSent, 500U);
    EXPECT_EQ(counts[0].barePackets, 5U);
    note(key | BPF_TRAFFIC_ELSEWHERE, 100, 0);
    EXPECT_TRUE(counts.at(0).isElsewhere);
    ledger.beginReading();
    note(key, 1300, 500);
    EXPECT_EQ(counts.at(0).bytesReceived, 300U);
    EXPECT_EQ(counts.at(0).packetsReceived, 3U);
    note(key | BPF_TRAFFIC_ELSEWHERE, 100, 0);
    EXPECT_TRUE(counts.empty()) << "what stood still is not there";
    note(key, 1360, 500);
    EXPECT_EQ(counts.at(0).bytesReceived, 60U) << "bytes that come before their packet are not lost";
    note(key, 40, 0);
    EXPECT_EQ(counts.at(0).bytesReceived, 40U) << "taken out behind our back, and new since";
    EXPECT_EQ(counts.at(0).bytesSent, 0U);
    ledger.forget(key);
    note(key, 100, 0);
    EXPECT_EQ(counts.at(0).bytesReceived, 100U) << "a new entry begins at 0";
}

TEST_F(TrafficLedgerTest, LetsGoWhatStandsStillAndSoonerWhenRoomIsShort)
{
    ledger.beginReading();
    note(0, 0, 0);
    note(42, 100, 0);
    for (std::uint32_t i = 1; i < TrafficLedger::patience; ++i) {
        ledger.beginReading();
        note(42, 100, 0);
    }
    EXPECT_TRUE(ledger.idle().empty());
    ledger.beginReading();
    EXPECT_EQ(ledger.idle(), std::vector<std::uint64_t>{42}) << "never the one of nobody";
    for (std::uint64_t key = 43; key < 47; ++key) {
        note(key, 100, 0);
    }
    ledger.beginReading();
    EXPECT_EQ(ledger.idle().size(), 5U) << "more than half full";
}

} // namespace
} // namespace meridal::test
