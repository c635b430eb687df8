// SPDX-License-Identifier: Apache-2.0
#include "base/NotificationCenter.h"
#include "base/Value.h"

#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace meridal {
namespace {

class NotificationCenterTest : public testing::Test {
protected:
    using Observation = std::unique_ptr<NotificationCenter::Observation>;

    NotificationCenter::Handler noting(char mark)
    {
        return [this, mark](const void*, const Dictionary&) { order += mark; };
    }

    NotificationCenter center;
    std::string order;
};

TEST_F(NotificationCenterTest, ReachesThoseWhoAskedForTheNameAndTheObject)
{
    const int one = 1;
    const int two = 2;
    Dictionary got;
    const Observation any = center.observe("note", nullptr, [&](const void* object, const Dictionary& userInfo) {
        EXPECT_EQ(object, &one);
        got = userInfo;
    });
    const Observation ofOne = center.observe("note", &one, noting('1'));
    const Observation ofTwo = center.observe("note", &two, noting('2'));
    const Observation other = center.observe("other", nullptr, noting('o'));
    center.post("note", &one, {{"pid", 7}});
    EXPECT_EQ(order, "1");
    EXPECT_EQ(got, (Dictionary{{"pid", 7}}));
    center.post("note", &one);
    EXPECT_EQ(got, Dictionary::object());
}

TEST_F(NotificationCenterTest, ObserverRemovedDuringAPostIsNotCalledAnyMore)
{
    Observation later;
    Observation self;
    const Observation first = center.observe("note", nullptr, [&](const void*, const Dictionary&) { later.reset(); });
    self = center.observe("note", nullptr, [&, held = std::make_shared<char>('s')](const void*, const Dictionary&) {
        self.reset();
        order += *held; // the handler lives until it returns
    });
    later = center.observe("note", nullptr, noting('l'));
    center.post("note", nullptr);
    center.post("note", nullptr);
    EXPECT_EQ(order, "s");
}

TEST_F(NotificationCenterTest, ObserversMayAddAndPostFromInside)
{
    Observation added;
    const Observation inner = center.observe("inner", nullptr, noting('i'));
    const Observation outer = center.observe("outer", nullptr, [&](const void*, const Dictionary&) {
        if (!added) {
            added = center.observe("outer", nullptr, noting('a'));
        }
        center.post("inner", nullptr);
        order += 'o';
    });
    center.post("outer", nullptr);
    EXPECT_EQ(order, "io") << "the new one hears the next post first";
    center.post("outer", nullptr);
    EXPECT_EQ(order, "ioioa");
}

TEST_F(NotificationCenterTest, ObservationMayOutliveTheCentre)
{
    std::optional<NotificationCenter> shortLived(std::in_place);
    const Observation observation = shortLived->observe("note", nullptr, noting('n'));
    shortLived.reset();
}

TEST_F(NotificationCenterTest, ThreadsMayPostAndObserveAtOnce)
{
    std::atomic<int> heard = 0;
    const Observation steady = center.observe("note", nullptr, [&](const void*, const Dictionary&) { ++heard; });
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&] {
            for (int k = 0; k < 200; ++k) {
                const Observation brief = center.observe("note", nullptr, [](const void*, const Dictionary&) {});
                center.post("note", nullptr);
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(heard, 600);
}

} // namespace
} // namespace meridal
