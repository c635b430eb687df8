// SPDX-License-Identifier: Apache-2.0
#include "platform/formats/FollowedPowerSources.h"

#include "tests/support/VirtualRuntime.h"

#include <gtest/gtest.h>

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
}

} // namespace
} // namespace meridal
