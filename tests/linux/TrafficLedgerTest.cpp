#include "platform/linux/TrafficLedger.h"

#include <gtest/gtest.h>

namespace meridal::test {
namespace {

BpfTraffic sums(std::uint64_t received, std::uint64_t sent)
{
    return {.bytes = {received, sent}, .packets = {received / 100, sent / 100}, .parent = 7};
}

TEST(TrafficLedger, TellsWhatMovedAndOfWhom)
{
    TrafficLedger ledger(1000);
    std::vector<TrafficCount> counts;
    ledger.beginReading();
    const std::uint64_t key = std::uint64_t{5} << BPF_TRAFFIC_START_SHIFT | 42;
    ledger.note(key, sums(1000, 500), counts);
    ledger.note(key | BPF_TRAFFIC_ELSEWHERE, sums(100, 0), counts);
    ASSERT_EQ(counts.size(), 2U);
    EXPECT_EQ(counts[0].pid, 42);
    EXPECT_EQ(counts[0].parentPid, 7);
    EXPECT_EQ(counts[0].startIdentity, 5U);
    EXPECT_EQ(counts[0].bytesSent, 500U);
    EXPECT_TRUE(counts[1].isElsewhere);
    counts.clear();
    ledger.beginReading();
    ledger.note(key, sums(1300, 500), counts);
    ledger.note(key | BPF_TRAFFIC_ELSEWHERE, sums(100, 0), counts);
    ASSERT_EQ(counts.size(), 1U) << "what stood still is not there";
    EXPECT_EQ(counts[0].bytesReceived, 300U);
    EXPECT_EQ(counts[0].packetsReceived, 3U);
    ledger.forget(key);
    ledger.note(key, sums(100, 0), counts);
    EXPECT_EQ(counts[1].bytesReceived, 100U) << "a new entry begins at 0";
}

TEST(TrafficLedger, BytesThatComeBeforeTheirPacketAreNotLost)
{
    TrafficLedger ledger(8);
    std::vector<TrafficCount> counts;
    ledger.beginReading();
    ledger.note(42, {.bytes = {0, 100}, .packets = {0, 1}, .parent = 7}, counts);
    ledger.note(42, {.bytes = {0, 160}, .packets = {0, 1}, .parent = 7}, counts);
    ASSERT_EQ(counts.size(), 2U);
    EXPECT_EQ(counts[1].bytesSent, 60U);
}

TEST(TrafficLedger, LetsGoWhatStandsStillAndSoonerWhenRoomIsShort)
{
    TrafficLedger ledger(8);
    std::vector<TrafficCount> counts;
    ledger.beginReading();
    ledger.note(0, sums(0, 0), counts);
    ledger.note(42, sums(100, 0), counts);
    for (std::uint32_t i = 1; i < TrafficLedger::patience; ++i) {
        ledger.beginReading();
        ledger.note(42, sums(100, 0), counts);
    }
    EXPECT_TRUE(ledger.idle().empty());
    ledger.beginReading();
    EXPECT_EQ(ledger.idle(), std::vector<std::uint64_t>{42}) << "never the one of nobody";
    for (std::uint64_t key = 43; key < 47; ++key) {
        ledger.note(key, sums(100, 0), counts);
    }
    ledger.beginReading();
    EXPECT_EQ(ledger.idle().size(), 5U) << "more than half full";
}

} // namespace
} // namespace meridal::test
