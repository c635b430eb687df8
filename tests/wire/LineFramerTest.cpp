// SPDX-License-Identifier: Apache-2.0
#include "wire/LineFramer.h"

#include <rapidcheck/gtest.h>

#include <string>
#include <vector>

namespace meridal {
namespace {

std::vector<std::string> linesOf(LineFramer& framer)
{
    std::vector<std::string> lines;
    while (const auto line = framer.next()) {
        lines.emplace_back(*line);
    }
    return lines;
}

RC_GTEST_PROP(LineFramer, LinesComeOutWholeHoweverTheyCameIn, ())
{
    const auto bytes = *rc::gen::container<std::string>(rc::gen::element('a', 'b', '\r', '\n'));
    LineFramer whole(4);
    whole.append(bytes);
    const auto expected = linesOf(whole);

    LineFramer cut(4);
    std::vector<std::string> lines;
    for (std::size_t at = 0; at < bytes.size();) {
        const auto count = *rc::gen::inRange<std::size_t>(1, 6);
        cut.append(std::string_view(bytes).substr(at, count));
        at += count;
        for (auto& line : linesOf(cut)) {
            lines.push_back(std::move(line));
        }
    }
    RC_ASSERT(lines == expected);
    RC_ASSERT(cut.overflowed() == whole.overflowed());
}

TEST(LineFramer, EndsAndEmptyLines)
{
    LineFramer framer;
    framer.append("one\r\n\n\r\ntwo\r\r\nthree");
    EXPECT_EQ(linesOf(framer), (std::vector<std::string>{"one", "two\r"}));
    framer.append("\n");
    EXPECT_EQ(linesOf(framer), (std::vector<std::string>{"three"}));
}

TEST(LineFramer, TheLimitIsExactAndFinal)
{
    for (const char* end : {"\n", "\r\n"}) {
        LineFramer framer;
        framer.append(std::string(LineFramer::defaultLimit, 'x') + end);
        ASSERT_TRUE(framer.next());
        framer.append(std::string(LineFramer::defaultLimit + 1, 'x') + end);
        EXPECT_FALSE(framer.next());
        EXPECT_TRUE(framer.overflowed());
        EXPECT_LT(framer.heldBytes(), 1024U);
        framer.append("later\n");
        EXPECT_FALSE(framer.next());
    }
    LineFramer endless(8);
    endless.append("123456789");
    EXPECT_FALSE(endless.next());
    EXPECT_FALSE(endless.overflowed()) << "the ninth byte may still be a carriage return";
    endless.append("0");
    EXPECT_FALSE(endless.next());
    EXPECT_TRUE(endless.overflowed()) << "without waiting for an end that may never come";
}

TEST(LineFramer, MemoryOfALongLineIsGivenBack)
{
    LineFramer framer;
    for (std::size_t i = 0; i < LineFramer::defaultLimit; i += 1024) {
        framer.append(std::string(1024, 'x')); // a scan from the start each time would take minutes
        EXPECT_FALSE(framer.next());
    }
    EXPECT_GE(framer.heldBytes(), LineFramer::defaultLimit);
    framer.append("\n{\"half\":");
    EXPECT_TRUE(framer.next());
    EXPECT_FALSE(framer.next());
    EXPECT_LT(framer.heldBytes(), 1024U);
}

} // namespace
} // namespace meridal
