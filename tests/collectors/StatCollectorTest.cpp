// SPDX-License-Identifier: Apache-2.0
#include "tests/collectors/RecordingCollector.h"

#include <gtest/gtest.h>

namespace meridal::test {
namespace {

class StatCollectorTest : public testing::Test {
protected:
    FakeMachine machine;
};

TEST_F(StatCollectorTest, ItemsAreFoundMadeKeptAndDropped)
{
    RecordingCollector collector(machine);
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
        std::weak_ordering sort(const StatCollectorItem& other) const override
        {
            return key()->compare(*other.key()) <=> 0;
        }
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

} // namespace
} // namespace meridal::test
