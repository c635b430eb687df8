#include "tests/collectors/RecordingCollector.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace meridal::test {
namespace {

constexpr auto full = StorageIndex::Hour; // in a layout of one storage the full store is number 1

class StatCollectorItemTest : public testing::Test {
protected:
    StatCollectorItemTest() { item.config() = simpleConfiguration(); }

    FakeMachine machine;
    StatCollectorItem item{machine.context, 2};
};

TEST_F(StatCollectorItemTest, NewestSampleNamesTheClock)
{
    item.addSample({{"id", 6}, {"a", 1}, {"b", 2}, {"c", 3}, {"time", 60}}, live);
    EXPECT_EQ(item.idForInterval(live), 6);
    EXPECT_EQ(item.sampleIndex(live)->time, 60);
    item.addSample({{"id", 6}, {"time", 61}}, live);
    item.addSample({{"id", -1}, {"time", 61}}, live);
    EXPECT_EQ(item.sampleIndex(live)->time, 60) << "not newer";
    item.addSample({{"time", 62}}, live);
    EXPECT_EQ(item.idForInterval(live), 7);
    EXPECT_THAT(item.sampleAtIndex(newest, live).values, testing::ElementsAre(1, 2));
    EXPECT_EQ(item.lowestSampleForStorageType(live), 7U);
}

TEST_F(StatCollectorItemTest, OnlyOneMarksEmpty)
{
    for (const auto& [mark, empty] : {std::pair(Value(1), 1), {Value(2), 0}, {Value(true), 1}, {Value(), 0}}) {
        item.addSample({{"empty", mark}}, live);
        EXPECT_EQ(item.sampleAtIndex(newest, live).empty, empty) << mark;
    }
}

TEST_F(StatCollectorItemTest, WritingASlotWithoutIdentifierGivesItNone)
{
    item.addSample({{"id", 6}}, live);
    item.addSample({{"a", 3}}, live, newest);
    EXPECT_EQ(item.sampleAtIndex(newest, live).sampleID, 0U);
    EXPECT_EQ(item.idForInterval(live), 0);
    item.addSample({{"a", 9}}, live, SlotIndex{1}, 5);
    EXPECT_EQ(item.sampleWithIdentifier(5, live).empty, 1);
    EXPECT_EQ(item.sampleAtIndex(newest, live).values[0], 3);
}

TEST_F(StatCollectorItemTest, FullStoreTakesSamplesOnlyWhileAClientLooks)
{
    item.addSampleToFullStorage({{"a", 1}, {"id", 3}}, live);
    EXPECT_EQ(item.storageForType(full), nullptr);
    EXPECT_EQ(item.sampleWithIdentifierFull(3, live).empty, 1);

    item.loadFullStorageAtIndex(StorageIndex::Day);
    item.addSampleToFullStorage({{"a", 1}, {"id", 3}, {"time", 7}}, live);
    item.addSampleToFullStorage({{"a", 2}, {"id", 2}}, live);
    item.addSampleToFullStorage({{"a", 2}}, live, SlotIndex{1}, 4);
    EXPECT_EQ(item.sampleWithIdentifierFull(3, live).values[0], 1);
    EXPECT_EQ(item.idForIntervalFull(live), 3);
    EXPECT_EQ(item.sampleAtIndex(newest, full).sampleID, 3U);
    EXPECT_EQ(item.sampleAtIndex(newest, live).sampleID, 0U) << "the reduced store is another one";

    item.freeFullStorage();
    item.addSampleToFullStorage({{"a", 5}, {"id", 9}}, live);
    item.loadFullStorageAtIndex(live);
    EXPECT_EQ(item.sampleAtIndex(newest, full).sampleID, 0U);
}

TEST_F(StatCollectorItemTest, HistoryNeedsAKeyAndTellsThePeriodsStart)
{
    item.addSample({{"a", 3}, {"time", 100}}, live);
    EXPECT_EQ(item.historyItemForIndex(live), std::nullopt);
    item.setKey("fan");
    const Dictionary expected{{"empty", false}, {"time", 99.0}, {"uuid", "fan"}, {"A", 3.0}, {"B", 0.0}};
    EXPECT_EQ(item.historyItemForIndex(live), expected);
    EXPECT_EQ(item.historyItemForIndex(StorageIndex::Hour), std::nullopt) << "no such storage";
}

TEST_F(StatCollectorItemTest, CleanupLetsGoOnceAndLeavesTheItemUsable)
{
    item.loadFullStorageAtIndex(live);
    item.addSample({{"a", 3}}, live);
    item.cleanup();
    item.cleanup();
    EXPECT_FALSE(item.loadedValuesAtIndex(live));
    item.addSample({{"a", 3}}, live);
    item.addSampleToFullStorage({{"a", 3}}, live);
    EXPECT_TRUE(item.sampleAtIndex(newest, live).values.empty());
    EXPECT_EQ(item.storageForType(live), nullptr);
}

TEST_F(StatCollectorItemTest, UnknownStoragesAnswerAsEmpty)
{
    const auto nonsense = static_cast<StorageIndex>(77);
    item.loadStorageAtIndex(nonsense);
    item.loadFullStorageAtIndex(nonsense);
    item.addSample({{"a", 1}}, nonsense);
    item.setTimeForSampleIndex(nonsense, 1);
    item.clearStorageForType(nonsense);
    EXPECT_EQ(item.sampleIndex(nonsense), std::nullopt);
    EXPECT_EQ(item.sampleAtIndex(newest, nonsense).empty, 1);
    EXPECT_EQ(item.lowestSampleForStorageType(nonsense), 0U);
    EXPECT_FALSE(item.loadedValuesAtIndex(nonsense));
}

TEST_F(StatCollectorItemTest, ReloadingAStorageForgetsItsSamplesOnly)
{
    item.addSample({{"id", 4}, {"a", 1}, {"time", 9}}, live);
    item.loadStorageAtIndex(live);
    EXPECT_EQ(item.sampleAtIndex(newest, live).empty, 1);
    EXPECT_EQ(item.sampleAtIndex(newest, live).values[0], 0);
    EXPECT_EQ(item.idForInterval(live), 4);
}

} // namespace
} // namespace meridal::test
