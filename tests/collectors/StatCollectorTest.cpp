#include "tests/collectors/RecordingCollector.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace meridal::test {
namespace {

class StatCollectorTest : public testing::Test {
protected:
    FakeMachine machine;
};

TEST_F(StatCollectorTest, StoragesThatTheLayoutLacksTakeAndGiveNothing)
{
    RecordingCollector collector(machine, ringOf(1));
    for (const auto index : {StorageIndex::Hour, StorageIndex::LongTerm, static_cast<StorageIndex>(200)}) {
        collector.addSample({{"a", 1}}, index);
        collector.setIDForInterval(index, 9);
        collector.checkNextTimeAtIndex(index);
        collector.fillGapsAtIndex(index);
        collector.insertSampleWithIndex(index);
        collector.clearStorageForType(index);
        EXPECT_EQ(collector.sampleIndex(index), std::nullopt);
        EXPECT_EQ(collector.storageForType(index), nullptr);
        EXPECT_EQ(collector.sampleAtIndex(newest, index).empty, 1);
        EXPECT_EQ(collector.averagesForIndex(index).at("empty"), true);
    }
    EXPECT_TRUE(collector.inserts.empty());
}

TEST_F(StatCollectorTest, IdentifierIsTheLastKeyPresentOrTheNextNumber)
{
    RecordingCollector collector(machine, ringOf(3));
    collector.addSample({{"a", 1}, {"time", 10}}, live);
    EXPECT_EQ(collector.lastIDForType(live), 1U);
    collector.addSample({{"id", 5}, {"sample", 7}, {"time", 11}}, live);
    EXPECT_EQ(collector.lastIDForType(live), 7U) << "the last key wins";
    collector.addSample({{"id", 0}, {"time", 12}}, live);
    EXPECT_EQ(collector.lastIDForType(live), 8U) << "0 counts as none";
    for (const Value& stale : {Value(8), Value(3), Value(-4), Value(1e300)}) {
        collector.addSample({{"id", stale}, {"time", 99}}, live);
    }
    EXPECT_EQ(collector.lastIDForType(live), 8U);
    EXPECT_EQ(collector.lastTimeForType(live), 12) << "what is not newer is dropped";
    collector.addSample({{"time", 13}}, live, 2);
    EXPECT_EQ(collector.lastIDForType(live), 2U) << "an explicit identifier is not questioned";
}

TEST_F(StatCollectorTest, ValuesFollowTheMapAndNothingElseGetsIn)
{
    RecordingCollector collector(machine, ringOf(2, 2)); // c has no slot
    collector.addSample({{"a", 1.5}, {"b", 2}, {"c", 3}, {"beyond", 4}, {"when", 77}}, live);
    statsample sample = collector.sampleAtIndex(newest, live);
    EXPECT_THAT(sample.values, testing::ElementsAre(1.5, 2));
    EXPECT_EQ(sample.time, 77);
    EXPECT_EQ(sample.empty, 0);

    constexpr double infinity = std::numeric_limits<double>::infinity();
    collector.addSample({{"a", infinity}, {"b", "2"}, {"time", std::nan("")}, {"empty", 2}}, live);
    sample = collector.sampleAtIndex(newest, live);
    EXPECT_THAT(sample.values, testing::ElementsAre(1.5, 2)) << "what a sample lacks stays as it was";
    EXPECT_EQ(sample.time, 77);
    EXPECT_EQ(sample.empty, 2) << "a collector keeps the integer as it is";

    collector.addSample({{"a", 9}}, live, 50, SlotIndex{2});
    EXPECT_EQ(collector.sampleWithIdentifier(50, live).empty, 1) << "there is no third slot";
    EXPECT_EQ(collector.sampleWithIdentifier(50, live).sampleID, 50U);
}

TEST_F(StatCollectorTest, ValuesOfItemsLeaveTheCollectorOnlyLabels)
{
    auto traits = ringOf(2);
    traits.storageType = StorageType::Items;
    RecordingCollector collector(machine, traits);
    collector.addSample({{"sample", 4}, {"time", 40}, {"a", 1}}, live);
    collector.addSample({{"sample", 3}, {"time", 50}}, live); // not questioned either
    EXPECT_EQ(collector.lastIDForType(live), 3U);
    EXPECT_EQ(collector.sampleAtIndex(SlotIndex{1}, live).sampleID, 4U);
    EXPECT_EQ(collector.sampleAtIndex(SlotIndex{1}, live).time, 40);
    EXPECT_EQ(collector.sampleAtIndex(newest, live).empty, 1);
    EXPECT_EQ(collector.lowestSampleForStorageType(live), 0U);
    collector.newItemWithKey("x")->addSample({{"id", 9}}, live);
    collector.newItemWithKey("y")->addSample({{"id", 4}}, live);
    EXPECT_EQ(collector.lowestSampleForStorageType(live), 4U) << "of the item furthest behind";
}

TEST_F(StatCollectorTest, ClearingReachesTheItems)
{
    RecordingCollector collector(machine, ringOf(2));
    const auto item = collector.newItemWithKey("x");
    collector.addSample({{"a", 1}, {"time", 5}}, live);
    item->addSample({{"a", 1}, {"time", 5}}, live);
    item->loadFullStorageAtIndex(live);
    item->setLoadedHistory(true);
    collector.clearAllStorages();
    EXPECT_EQ(collector.lastIDForType(live), 0U);
    EXPECT_EQ(collector.lastTimeForType(live), 0);
    EXPECT_EQ(item->sampleAtIndex(newest, live).empty, 1);
    collector.freeFullStorage();
    EXPECT_FALSE(item->loadedHistory());
    EXPECT_EQ(item->fullStorageForType(live), nullptr);
}

TEST_F(StatCollectorTest, ItemsAreFoundMadeKeptAndDropped)
{
    RecordingCollector collector(machine, ringOf(1));
    EXPECT_EQ(collector.itemWithKey("42"), nullptr);
    const auto guest = collector.itemWithKey(42, Temporary::Yes);
    ASSERT_NE(guest, nullptr);
    EXPECT_TRUE(guest->temporary());
    EXPECT_EQ(guest->config(), collector.config());
    EXPECT_EQ(guest->parent(), &collector);
    EXPECT_EQ(collector.itemWithKey("42"), nullptr) << "normal look-ups pass temporary items over";
    EXPECT_EQ(collector.itemWithKey("42", Temporary::Yes), guest);
    EXPECT_EQ(collector.newItemWithKey("42"), guest);
    EXPECT_FALSE(guest->temporary()) << "now it lasts";

    guest->setExists(true);
    EXPECT_FALSE(collector.removeOldItems());
    guest->setExists(false);
    EXPECT_TRUE(collector.removeOldItems());
    EXPECT_TRUE(collector.items().empty());
    EXPECT_EQ(guest->parent(), nullptr);
    EXPECT_EQ(StatCollector(machine.context).newItemWithKey("x"), nullptr) << "the base makes no items";
}

TEST_F(StatCollectorTest, BaseOrderKeepsItemsAndAnOverrideSortsThem)
{
    struct ByKey final : StatCollectorItem {
        using StatCollectorItem::StatCollectorItem;
        std::weak_ordering sort(const StatCollectorItem& other) const override { return *key() <=> *other.key(); }
    };
    const auto sorted = [this](auto make) {
        RecordingCollector collector(machine);
        for (const char* key : {"c", "a", "b"}) {
            collector.mutableItems().push_back(make());
            collector.mutableItems().back()->setKey(key);
        }
        collector.sort();
        std::string keys;
        for (const auto& item : collector.items()) {
            keys += *item->key();
        }
        return keys;
    };
    EXPECT_EQ(sorted([this] { return std::make_shared<StatCollectorItem>(machine.context); }), "cab");
    EXPECT_EQ(sorted([this] { return std::make_shared<ByKey>(machine.context); }), "abc");
}

TEST_F(StatCollectorTest, SelectionKeyIsASetOrAbsent)
{
    RecordingCollector collector(machine);
    collector.removeSelectionKeyItem("a");
    EXPECT_EQ(collector.selectionKey(), std::nullopt);
    for (const char* key : {"ab", "a", "b", "a"}) {
        collector.addSelectionKeyItem(key);
    }
    EXPECT_EQ(collector.selectionKey(), "ab|a|b");
    collector.removeSelectionKeyItem("a");
    EXPECT_EQ(collector.selectionKey(), "ab|b");
    collector.removeSelectionKeyItem("b");
    collector.removeSelectionKeyItem("ab");
    EXPECT_EQ(collector.selectionKey(), std::nullopt);
}

// Delegates

struct Watcher final : StatCollectorDelegate {
    std::optional<bool> collectorShouldUpdateStateForSequence(StatCollector&, std::int64_t) override { return opinion; }
    void collectorUpdatedForMode(StatCollector&, int mode) override
    {
        ++updates;
        EXPECT_EQ(mode, 0);
        if (onUpdate) {
            onUpdate();
        }
    }
    void collectorLoadedValueForItem(StatCollector&, StatCollectorItem& item) override { loaded = &item; }
    std::optional<bool> opinion;
    int updates = 0;
    StatCollectorItem* loaded = nullptr;
    std::function<void()> onUpdate;
};

TEST_F(StatCollectorTest, MeasuresUnlessWatchersAllDecline)
{
    RecordingCollector collector(machine);
    EXPECT_TRUE(collector.shouldUpdateStateForSequence(0)) << "nobody watches";
    Watcher first;
    Watcher second;
    collector.addDelegate(first);
    EXPECT_FALSE(collector.shouldUpdateStateForSequence(0)) << "a watcher without an opinion";
    collector.addDelegate(second);
    first.opinion = false;
    second.opinion = true;
    EXPECT_TRUE(collector.shouldUpdateStateForSequence(0));
    second.opinion = false;
    EXPECT_FALSE(collector.shouldUpdateStateForSequence(0));
}

TEST_F(StatCollectorTest, DelegatesComeAndGoDuringANotification)
{
    RecordingCollector collector(machine);
    Watcher first;
    auto second = std::make_unique<Watcher>();
    Watcher third;
    Watcher late;
    for (Watcher* watcher : {&first, second.get(), &third, &first}) {
        collector.addDelegate(*watcher);
    }
    first.onUpdate = [&] {
        if (second) {
            collector.removeDelegate(*second);
            second.reset();
        }
        collector.removeDelegate(first);
        collector.addDelegate(late);
    };
    collector.updaterFinishBlock()(collector);
    EXPECT_EQ(first.updates, 1) << "added twice, told once";
    EXPECT_EQ(third.updates, 1);
    EXPECT_EQ(late.updates, 0);
    collector.updaterFinishBlock()(collector);
    EXPECT_EQ(first.updates, 1);
    EXPECT_EQ(late.updates, 1);

    const auto item = collector.newItemWithKey("x");
    collector.itemLoadedValues(*item);
    EXPECT_EQ(late.loaded, item.get());
}

// History

TEST_F(StatCollectorTest, AveragesOfNothingAreEmptyZerosOfNow)
{
    RecordingCollector collector(machine, historyOf(StorageType::Collector, 2));
    machine.runtime.advance(3.5);
    const Dictionary expected{{"empty", true}, {"time", 1'700'000'003.5}, {"A", 0.0}, {"B", 0.0}};
    EXPECT_EQ(collector.averagesForIndex(StorageIndex::Hour), expected);
}

TEST_F(StatCollectorTest, ASampleOfAPeriodNeverCountsForTheOneBefore)
{
    RecordingCollector collector(machine, historyOf(StorageType::Collector));
    collector.record(StorageIndex::Day).time = 1000;
    for (const double time : {1000.0, 1000.5}) { // unlike live ones, which may come a moment late
        collector.addSample({{"a", time}, {"time", time}}, StorageIndex::Hour);
    }
    EXPECT_EQ(collector.averagesForIndex(StorageIndex::Day).at("A"), 1000);
}

TEST_F(StatCollectorTest, FinishedPeriodGoesToRingItemsAndTable)
{
    RecordingCollector collector(machine, historyOf(StorageType::Items));
    const auto item = collector.newItemWithKey("x");
    collector.newItemWithKey("secret")->setNohistory(true);
    collector.itemWithKey("guest", Temporary::Yes);
    item->addSample({{"a", 4}, {"time", 99}}, live);
    item->setTimeForSampleIndex(StorageIndex::Hour, 100);
    collector.record(StorageIndex::Hour).time = 100;
    collector.record(StorageIndex::Hour).sampleID = 12;
    collector.insertSampleWithIndex(StorageIndex::Hour);

    ASSERT_EQ(collector.inserts.size(), 1U);
    const Dictionary& sample = collector.inserts[0].sample;
    EXPECT_EQ(sample.at("sample"), 12);
    EXPECT_EQ(sample.at("time"), 100);
    EXPECT_EQ(sample.at("empty"), 0);
    ASSERT_EQ(sample.at("items").size(), 1U) << "neither the one without history nor the temporary one";
    EXPECT_EQ(sample.at("items")[0].at("uuid"), "x");
    EXPECT_EQ(sample.at("items")[0].at("sample"), 12);
    EXPECT_EQ(collector.lastIDForType(StorageIndex::Hour), 12U);
    EXPECT_EQ(item->sampleAtIndex(newest, StorageIndex::Hour).sampleID, 12U);
    EXPECT_EQ(item->sampleAtIndex(newest, StorageIndex::Hour).time, 100);

    collector.record(StorageIndex::LongTerm).time = 300;
    collector.insertSampleWithIndex(StorageIndex::LongTerm);
    EXPECT_EQ(collector.longTermSamples, 1);
    EXPECT_EQ(collector.lastIDForType(StorageIndex::LongTerm), 0U) << "the long-term store has no ring";
}

TEST_F(StatCollectorTest, DatabaseIsPreparedOnce)
{
    struct Migrating final : StatCollector {
        using StatCollector::StatCollector;
        bool migrateDatabase() override { return ++migrations > 0; }
        int migrations = 0;
    };
    Migrating collector(machine.context);
    EXPECT_TRUE(collector.prepareDatabase());
    EXPECT_FALSE(collector.prepareDatabase());
    EXPECT_EQ(collector.migrations, 1);
}

} // namespace
} // namespace meridal::test
