#include "client/views/UptimeView.h"

#include <gtest/gtest.h>

#include <string>

namespace meridal {
namespace {

TEST(UptimeView, ColumnsAlignHoweverLongItLasted)
{
    constexpr double day = 86'400;
    Value boots = Value::array();
    for (const double length : {5.0, 86'399.0, 100.5 * day, 9999.99 * day}) {
        boots.push_back(
            {{"started", 1.7e9}, {"shutdown", 1.7e9}, {"end", "orderly"}, {"asleep", length}, {"length", length}});
        boots.push_back(
            {{"started", 1.7e9}, {"shutdown", nullptr}, {"end", "crash"}, {"asleep", length}, {"length", length}});
    }
    const Lines lines = uptimeLines({{"boots", boots}}, true);
    ASSERT_GE(lines.size(), 9U);
    const std::string heading = plainText(lines[lines.size() - 9]);
    const auto asleep = heading.find("ASLEEP") + 6;
    const auto lasted = heading.find("LASTED") + 6;
    for (std::size_t i = lines.size() - 8; i < lines.size(); ++i) {
        const std::string line = plainText(lines[i]);
        EXPECT_EQ(line.find_first_of("sc", heading.find("END", asleep)), heading.find("END", asleep)) << line;
        EXPECT_NE(line[lasted - 1], ' ') << line;
        EXPECT_EQ(line[lasted], ' ') << line;
        EXPECT_NE(line[asleep - 1], ' ') << line;
        EXPECT_EQ(line.substr(asleep, 2), "  ") << line;
    }
}

} // namespace
} // namespace meridal
