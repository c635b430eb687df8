// SPDX-License-Identifier: Apache-2.0
#include "client/screen/Format.h"

#include "base/Text.h"
#include "client/screen/TextTable.h"
#include "tests/client/ViewText.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <limits>

namespace meridal {
namespace {

TEST(Format, BytesHaveThreeDigitsAndTheUnitThatKeepsThem)
{
    const std::pair<double, const char*> sizes[] = {{0, "0 B"}, {999, "999 B"}, {1000, "0.98 KiB"}, {1024, "1.00 KiB"},
        {12'590, "12.3 KiB"}, {9.996 * 1024, "10.0 KiB"}, {999.4 * 1024, "999 KiB"}, {1023 * 1024.0, "1.00 MiB"},
        {1.5 * 1024 * 1024 * 1024, "1.50 GiB"}, {1e300, "8.67e+281 EiB"},
        {std::numeric_limits<double>::quiet_NaN(), "-"}};
    for (const auto& [bytes, text] : sizes) {
        EXPECT_EQ(formatBytes(bytes), text);
    }
    EXPECT_EQ(formatByteRate(2048), "2.00 KiB/s");
}

TEST(Format, DurationsUseTheTwoLargestUnits)
{
    const std::pair<double, const char*> durations[] = {
        {59.9, "59 s"}, {302, "5 min 2 s"}, {7'260, "2 h 1 min"}, {90'000, "1 d 1 h"}, {-1, "-"}};
    for (const auto& [seconds, text] : durations) {
        EXPECT_EQ(formatDuration(seconds), text);
    }
    EXPECT_EQ(formatMilliseconds(0.000214), "0.214 ms");
    EXPECT_EQ(formatMilliseconds(0.0123), "12.3 ms");
}

TEST(Format, FittedTextEndsWhereItIsCut)
{
    EXPECT_EQ(fitLeft("abc", 5), "abc  ");
    EXPECT_EQ(fitRight("abc", 5), "  abc");
    EXPECT_EQ(fitLeft("abcdef", 4), "abc…");
    EXPECT_EQ(fitLeft("日本語", 4), "日… ") << "half of a wide character does not fit";
}

RC_GTEST_PROP(Format, FittedTextIsExactlyAsWideAsAsked, (const std::string& bytes))
{
    const auto width = *rc::gen::inRange(1, 40);
    RC_ASSERT(displayWidth(fitLeft(printable(bytes), width)) == width);
    RC_ASSERT(displayWidth(fitRight(printable(bytes), width)) == width);
}

TEST(TextTable, CellsStandBelowTheirTitles)
{
    TextTable table({{"NAME", 6, Align::Left, 1}, {"SIZE", 5, Align::Right, 2}, {"BAR", 4}, {"STATE"}});
    table.add({"a", {Style::High, "1"}, Line{{Style::Title, "█"}, {Style::Medium, "▌"}}, "as long as it comes"});
    table.add({"too long", "1234567", "", ""});
    table.addLine({{Style::Faint, "between"}});
    EXPECT_EQ(textOf(table.lines()),
        "NAME    SIZE  BAR STATE\n"
        "a          1  █▌  as long as it comes\n"
        "too l… 1234…\n"
        "between\n");
    EXPECT_EQ(table.lines()[1][1], (Span{Style::High, "    1"}));
}

TEST(TextTable, ColumnsGiveWayThenLeaveThenAreCut)
{
    const std::pair<int, const char*> rooms[] = {{0, "abcdefgh  12 serial end\n"}, {23, "abcdefgh  12 serial end\n"},
        {21, "abcdefgh12 serial end\n"}, {20, "abcdefgh12 end\n"}, {14, "abcdefgh12 end\n"}, {13, "abcdef…12 end\n"},
        {9, "abcde…12 end\n"}};
    for (const auto& [room, text] : rooms) {
        TextTable table(
            {{.title = "", .width = 10, .least = 6}, {"", 2, Align::Right, 1}, {"", 6, Align::Left, 1, 0, 1}, {}},
            room);
        table.add({"abcdefgh", "12", "serial", "end"});
        EXPECT_EQ(textOf(table.lines()), text) << room;
    }
}

RC_GTEST_PROP(Format, JsonForATerminalHasNoControlByteAndStaysTheSameValue, (const std::string& bytes))
{
    RC_ASSERT(terminalJson("a\x1B\x7F\xC2\x9B\xC2\xA0é") == "\"a\\u001b\\u007f\\u009b\xC2\xA0é\"");
    const Value value = {{validUtf8(bytes), Value::array({validUtf8(bytes)})}};
    const std::string json = terminalJson(value);
    RC_ASSERT(printable(json) == json);
    RC_ASSERT(parseUntrusted(json) == value);
}

} // namespace
} // namespace meridal
