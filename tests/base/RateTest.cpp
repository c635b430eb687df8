#include "base/Rate.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <cmath>
#include <limits>

namespace meridal {
namespace {

TEST(Rate, IsPerSecondAndAbsentWhereNothingHonestCanBeSaid)
{
    const CounterReading before{.identity = 7, .count = 100, .time = 10};
    EXPECT_EQ(ratePerSecond(before, {.identity = 7, .count = 150, .time = 12}), 25.0);
    EXPECT_EQ(ratePerSecond(before, {.identity = 7, .count = 100, .time = 12}), 0.0) << "idle is a figure";
    EXPECT_EQ(ratePerSecond(before, {.identity = 7, .count = 99, .time = 12}), std::nullopt);
    EXPECT_EQ(ratePerSecond(before, {.identity = 8, .count = 150, .time = 12}), std::nullopt);
    EXPECT_EQ(ratePerSecond(before, {.identity = 7, .count = 150, .time = 10}), std::nullopt);
    EXPECT_EQ(ratePerSecond(before, {.identity = 7, .count = 150, .time = 9}), std::nullopt);
}

TEST(Rate, IsNeverNegativeOrBoundless)
{
    EXPECT_TRUE(rc::check("every rate is a finite figure of at least zero", [](std::uint64_t a, std::uint64_t b) {
        const double end = std::numeric_limits<double>::infinity();
        const auto time = rc::gen::element(0.0, 5e-324, 1e-300, 1.0, 1e308, -1.0, end, -end, std::nan(""));
        const auto rate = ratePerSecond({.count = a, .time = *time}, {.count = b, .time = *time});
        RC_ASSERT(!rate || (std::isfinite(*rate) && *rate >= 0));
    }));
}

} // namespace
} // namespace meridal
