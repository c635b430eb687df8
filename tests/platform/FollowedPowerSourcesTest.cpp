// SPDX-License-Identifier: Apache-2.0
#include "platform/formats/FollowedPowerSources.h"

#include "tests/support/VirtualRuntime.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace meridal {
namespace {

using Keys = std::vector<std::string>;

TEST(FollowedPowerSources, OneChangeIsOneReadingAndBusynessIsToldNowAndThen)
{
    VirtualRuntime runtime;
    int readings = 0;
    int told = 0;
    FollowedPowerSources followed(
        runtime, [&] { return std::vector<PowerSourceRecord>(static_cast<std::size_t>(++readings)); });
    const auto ask = [&] {
        ++told;
        const std::size_t given = followed.sources().size();
        EXPECT_EQ(given, static_cast<std::size_t>(readings)) << "of this change";
    };
    auto first = followed.observe(ask);
    const auto second = followed.observe(ask);
    const Keys sources = {"State:/IOKit/PowerSources", "State:/IOKit/PowerManagement/SystemLoad/Detailed"};
    const Keys busy = {sources[1]};

    followed.changed(sources);
    EXPECT_EQ(told, 2);
    EXPECT_EQ(readings, 1);
    followed.sources();
    EXPECT_EQ(readings, 2) << "who asks by himself wants it as it is now";

    for (int touch = 0; touch < 9; ++touch) {
        followed.changed(busy);
        runtime.advance(1);
    }
    EXPECT_EQ(told, 2);
    runtime.advance(FollowedPowerSources::busyInterval);
    EXPECT_EQ(told, 4);
    EXPECT_EQ(readings, 3);

    first.reset();
    followed.changed({sources.data(), 1});
    EXPECT_EQ(told, 5);
    followed.changed({});
    EXPECT_EQ(told, 6) << "the store began anew";
}

TEST(FollowedPowerSources, AReadingOrAnObserverThatThrowsLeavesNoOldReading)
{
    VirtualRuntime runtime;
    std::size_t readings = 0;
    bool fails = false;
    FollowedPowerSources followed(runtime, [&] {
        ++readings;
        return fails ? throw std::runtime_error("no answer") : std::vector<PowerSourceRecord>(readings);
    });
    const auto observer = followed.observe([&] {
        fails = true;
        EXPECT_THROW(followed.sources(), std::runtime_error);
        fails = false;
        EXPECT_EQ(followed.sources().size(), readings) << "and not what came of the failure";
        throw std::runtime_error("observer");
    });
    const Keys sources = {"State:/IOKit/PowerSources"};
    EXPECT_THROW(followed.changed(sources), std::runtime_error);
    followed.sources();
    EXPECT_EQ(followed.sources().size(), 4U) << "nobody is being told";
}

} // namespace
} // namespace meridal
