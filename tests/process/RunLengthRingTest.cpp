#include "collectors/process/RunLengthRing.h"

#include <rapidcheck/gtest.h>

#include <deque>
#include <utility>
#include <vector>

namespace meridal {
namespace {

constexpr std::uint16_t window = 12;
using Ring = RunLengthRing<int, window>;
using Rows = std::deque<std::pair<int, std::uint32_t>>; // value and pass, newest first

Rows rowsOf(const Ring& ring)
{
    Rows rows;
    for (std::size_t index = 0; ring.at(index, [&](int value, std::uint32_t pass) { rows.emplace_back(value, pass); });
         ++index) { }
    return rows;
}

using Script = std::vector<std::pair<std::uint8_t, std::uint8_t>>; // values, and passes between them
RC_GTEST_PROP(RunLengthRing, ShowsTheSameRowsAsAPlainQueue, (const Script& script))
{
    Ring ring;
    Rows plain;
    std::uint32_t pass = 0;
    for (const auto& [value, skip] : script) {
        pass += skip < 200 ? 1u : skip < 230 ? 2u : skip < 250 ? window - 1u : skip * 1u; // gaps are rare
        ring.append(value % 3, pass);
        plain.emplace_front(value % 3, pass);
        while (plain.front().second - plain.back().second >= window) {
            plain.pop_back();
        }
        RC_ASSERT(rowsOf(ring) == plain);
        RC_ASSERT(ring.size() == plain.size());
        RC_ASSERT(ring.runs() <= ring.size());
    }
}

TEST(RunLengthRing, EqualRowsCostNoHeapAndCalmGivesItBack)
{
    Ring ring;
    for (std::uint32_t pass = 1; pass <= 1000; ++pass) {
        ring.append(7, pass);
    }
    EXPECT_EQ(ring.size(), window);
    EXPECT_EQ(ring.runs(), 1u);
    EXPECT_EQ(ring.heapBytes(), 0u);

    for (std::uint32_t pass = 1001; pass <= 1100; ++pass) {
        ring.append(static_cast<int>(pass), pass);
    }
    EXPECT_EQ(ring.runs(), window);
    EXPECT_GT(ring.heapBytes(), 0u);
    for (std::uint32_t pass = 1101; pass <= 1100 + window; ++pass) {
        ring.append(0, pass);
    }
    EXPECT_EQ(ring.heapBytes(), 0u);
}

} // namespace
} // namespace meridal
