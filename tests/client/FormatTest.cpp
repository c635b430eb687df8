#include "client/Format.h"

#include "base/Text.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <limits>

namespace meridal {
namespace {

TEST(Format, BytesHaveThreeDigitsAndTheUnitThatKeepsThem)
{
    EXPECT_EQ(formatBytes(0), "0 B");
    EXPECT_EQ(formatBytes(999), "999 B");
    EXPECT_EQ(formatBytes(1000), "0.98 KiB");
    EXPECT_EQ(formatBytes(1024), "1.00 KiB");
    EXPECT_EQ(formatBytes(12'590), "12.3 KiB");
    EXPECT_EQ(formatBytes(9.996 * 1024), "10.0 KiB");
    EXPECT_EQ(formatBytes(999.4 * 1024), "999 KiB");
    EXPECT_EQ(formatBytes(1023 * 1024.0), "1.00 MiB");
    EXPECT_EQ(formatBytes(1.5 * 1024 * 1024 * 1024), "1.50 GiB");
    EXPECT_EQ(formatBytes(1e300), "8.67e+281 EiB");
    EXPECT_EQ(formatBytes(std::numeric_limits<double>::quiet_NaN()), "-");
    EXPECT_EQ(formatByteRate(2048), "2.00 KiB/s");
}

TEST(Format, DurationsUseTheTwoLargestUnits)
{
    EXPECT_EQ(formatDuration(59.9), "59 s");
    EXPECT_EQ(formatDuration(302), "5 min 2 s");
    EXPECT_EQ(formatDuration(7'260), "2 h 1 min");
    EXPECT_EQ(formatDuration(90'000), "1 d 1 h");
    EXPECT_EQ(formatDuration(-1), "-");
    EXPECT_EQ(formatMilliseconds(0.000214), "0.214 ms");
    EXPECT_EQ(formatMilliseconds(0.0123), "12.3 ms");
}

TEST(Format, FittedTextIsExactlyAsWideAsAsked)
{
    EXPECT_EQ(fitLeft("abc", 5), "abc  ");
    EXPECT_EQ(fitRight("abc", 5), "  abc");
    EXPECT_EQ(fitLeft("abcdef", 4), "abc…");
    EXPECT_EQ(fitLeft("日本語", 4), "日… ") << "half of a wide character does not fit";
    const bool holds = rc::check("any printable text fits any width", [](const std::string& bytes) {
        const auto width = *rc::gen::inRange(1, 40);
        const std::string text = printable(bytes);
        RC_ASSERT(displayWidth(fitLeft(text, width)) == width);
        RC_ASSERT(displayWidth(fitRight(text, width)) == width);
    });
    EXPECT_TRUE(holds);
}

TEST(Format, JsonForATerminalHasNoControlByteAndStaysTheSameValue)
{
    EXPECT_EQ(terminalJson("a\x1B\x7F\xC2\x9B\xC2\xA0é"), "\"a\\u001b\\u007f\\u009b\xC2\xA0é\"");
    const bool holds = rc::check("escaping changes the text, not the value", [](const std::string& bytes) {
        const Value value = {{validUtf8(bytes), Value::array({validUtf8(bytes)})}};
        const std::string json = terminalJson(value);
        RC_ASSERT(printable(json) == json);
        RC_ASSERT(parseUntrusted(json) == value);
    });
    EXPECT_TRUE(holds);
}

} // namespace
} // namespace meridal
