// SPDX-License-Identifier: Apache-2.0
#include "base/Text.h"
#include "base/JsonMeasure.h"
#include "base/ShortText.h"
#include "base/Value.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cmath>
#include <cstdlib>
#include <fmt/format.h>
#include <limits>

namespace meridal {
namespace {

TEST(Text, MalformedBytesAreReplacedOneByOne)
{
    EXPECT_EQ(
        validUtf8("plain \xC3\xA9 \xE6\x97\xA5 \xF0\x9F\x98\x80"), "plain \xC3\xA9 \xE6\x97\xA5 \xF0\x9F\x98\x80");
    EXPECT_EQ(validUtf8("a\xFFz"), "a\xEF\xBF\xBDz");
    EXPECT_EQ(validUtf8("\xC0\xAF"), "\xEF\xBF\xBD\xEF\xBF\xBD") << "overlong slash";
    EXPECT_EQ(validUtf8("\xED\xA0\x80"), "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD") << "surrogate";
    EXPECT_EQ(validUtf8("cut \xE6\x97"), "cut \xEF\xBF\xBD\xEF\xBF\xBD");
}

RC_GTEST_PROP(Text, AnyBytesBecomeValidAndStayWhenValid, (const std::string& bytes))
{
    const std::string once = validUtf8(bytes);
    RC_ASSERT(validUtf8(once) == once);
    for (const char byte : printable(bytes)) {
        RC_ASSERT(static_cast<unsigned char>(byte) >= 0x20 && byte != 0x7F);
    }
}

TEST(Text, TerminalEscapesOfAProcessNameAreHarmless) { EXPECT_EQ(printable("evil\x1B[2J\n\xC2\x9B"), "evil?[2J??"); }

TEST(Text, WidthsAreThoseOfATerminalInAnyLocale)
{
    const std::pair<const char*, int> texts[] = {{"abc", 3}, {"\xC3\xA9", 1}, {"e\xCC\x81", 1}, {"日本", 4}, {"🚀", 2},
        {"✅", 2}, {"กั", 1}, {"█▌…", 3}, {"\xEF\xBF\xBD", 1}, {"\x07\xC2\x9B", 0}, {"a\xE2\x80\x8D", 1}};
    for (const auto& [text, width] : texts) {
        EXPECT_EQ(displayWidth(text), width) << text;
    }
}

TEST(Text, HundredthsAreRoundedByAllDigits)
{
    EXPECT_TRUE(
        rc::check("as the library does it, also close to half a hundredth", [](std::uint32_t whole, std::int8_t off) {
            for (const double scale : {200.0, 1.0, 3e6}) {
                double value = whole / scale;
                for (int step = 0; step < std::abs(off); ++step) {
                    value = std::nextafter(value, off > 0 ? 1e12 : -1e12);
                }
                RC_ASSERT(fixed2(value) == (value == 0 ? "0.00" : fmt::format("{:.2f}", value)));
            }
        }));
}

TEST(Text, ShortTextsAreWhatTheyWereMadeOf)
{
    ShortText kept;
    EXPECT_EQ(std::string_view(kept), "");
    for (const std::string text : {"fifteen bytes..", "a sixteenth byte", "", "more than a few bytes of text"}) {
        kept = std::string_view(text);
        EXPECT_EQ(std::string_view(kept), text);
        ShortText moved(std::move(kept));
        EXPECT_EQ(std::string_view(moved), text);
        kept = std::move(moved);
        kept = std::string_view(kept); // of itself
        EXPECT_EQ(std::string_view(kept), text);
    }
}

TEST(Text, FiguresAreFiniteAndLocaleFree)
{
    EXPECT_EQ(fixed2(3.14159), "3.14");
    EXPECT_EQ(fixed0(2.6e9), "2600000000");
    EXPECT_EQ(fixed2(std::numeric_limits<double>::infinity()), "0.00");
    for (const double value : {0.0, 0.5, 1.5, 2.5, -1.5, 9007199254740991.0, 9007199254740992.0, 1e20}) {
        EXPECT_EQ(fixed0(value), fmt::format("{:.0f}", value)) << "also where digits are found a faster way";
        EXPECT_EQ(fixed2(value), value == 0 ? "0.00" : fmt::format("{:.2f}", value));
    }
}

TEST(Value, JsonInPiecesIsAsInOne)
{
    constexpr double infinity = std::numeric_limits<double>::infinity();
    for (const double number : {0.0, -0.0, 200.0, 0.1, -1e300, infinity, std::nan("")}) {
        std::string json;
        appendNumber(json, number);
        EXPECT_EQ(json, serialise(Value(number)));
    }
    for (const std::string text : {"", "plain", "\"\\/", "line\n\x1F\x7F", "\xC3\xA9", "cut\xC3", "\xFF\xFE"}) {
        std::string json;
        appendText(json, text);
        EXPECT_EQ(json, serialise(Value(text)));
    }
}

TEST(Value, DeepInputIsRefusedWhileParsing)
{
    EXPECT_FALSE(parseUntrusted(std::string(200'000, '[')));
    EXPECT_FALSE(parseUntrusted(std::string(33, '[') + std::string(33, ']')));
    EXPECT_TRUE(parseUntrusted(std::string(32, '[') + std::string(32, ']')));
    std::string objects = "[{}";
    for (int count = 1; count < 350'000; ++count) {
        objects += ",{}";
    }
    EXPECT_EQ(measureJson(objects + "]").values, 350'001U);
    EXPECT_TRUE(parseUntrusted(objects + "]"))
        << "and in no time: a parser that looks back at each object takes minutes";
    EXPECT_FALSE(parseUntrusted("{\"a\":"));
}

TEST(Value, NumbersKeepTheirKindAndBadOnesAreAbsent)
{
    const Dictionary dictionary{{"i", 7}, {"d", 1.5}, {"b", true}, {"big", std::numeric_limits<std::uint64_t>::max()}};
    EXPECT_EQ(integer(dictionary, "i"), 7);
    EXPECT_EQ(integer(dictionary, "d"), std::nullopt);
    EXPECT_EQ(integer(dictionary, "big"), std::nullopt);
    EXPECT_EQ(number(dictionary, "i"), 7.0);
    EXPECT_EQ(number(dictionary, "b"), std::nullopt);
    EXPECT_EQ(number(dictionary, "none"), std::nullopt);
    EXPECT_EQ(serialise(Value("\xFF")), "\"\xEF\xBF\xBD\"");
}

} // namespace
} // namespace meridal
