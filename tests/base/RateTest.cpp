// SPDX-License-Identifier: Apache-2.0
#include "base/Rate.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cmath>
#include <limits>

namespace meridal {
namespace {

TEST(Rate, IsPerSecondAndAbsentWhereNothingHonestCanBeSaid)
{
    const CounterReading before{.identity = 7, .count = 100, .time = 10};
    EXPECT_EQ(ratePerSecond(before, {.identity = 7, .count = 150, .time = 12}), 25.0);
    EXPECT_EQ(ratePerSecond(before, {.identity = 7, .count = 100, .time = 12}), 0.0) << "idle is a figure";
    for (const CounterReading& odd : {CounterReading{7, 99, 12}, {8, 150, 12}, {7, 150, 10}, {7, 150, 9}}) {
        EXPECT_EQ(ratePerSecond(before, odd), std::nullopt);
    }
}

RC_GTEST_PROP(Rate, IsNeverNegativeOrBoundless, (std::uint64_t a, std::uint64_t b))
{
    const double end = std::numeric_limits<double>::infinity();
    const auto time = rc::gen::element(0.0, 5e-324, 1e-300, 1.0, 1e308, -1.0, end, -end, std::nan(""));
    const auto rate = ratePerSecond({.count = a, .time = *time}, {.count = b, .time = *time});
    RC_ASSERT(!rate || (std::isfinite(*rate) && *rate >= 0));
}

} // namespace
} // namespace meridal
