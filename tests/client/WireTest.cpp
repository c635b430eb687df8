#include "client/Wire.h"

#include <rapidcheck/gtest.h>

#include <vector>

namespace meridal {
namespace {

RC_GTEST_PROP(LineBuffer, HowTheBytesArriveMakesNoDifference, (const std::vector<std::string>& pieces))
{
    LineBuffer inPieces;
    LineBuffer atOnce;
    std::string all;
    std::vector<std::string> lines;
    for (const std::string& piece : pieces) {
        const std::string bytes = piece + (piece.size() % 3 == 0 ? "\n" : "");
        all += bytes;
        inPieces.append(bytes);
        while (const auto line = inPieces.nextLine()) {
            lines.push_back(*line);
        }
    }
    atOnce.append(all);
    for (const std::string& line : lines) {
        RC_ASSERT(atOnce.nextLine() == line);
    }
    RC_ASSERT(!atOnce.nextLine());
}

TEST(LineBuffer, OnlyTheUnfinishedLineCountsAgainstTheLimit)
{
    LineBuffer buffer(4);
    buffer.append("whole line\nfour");
    EXPECT_EQ(buffer.nextLine(), "whole line");
    EXPECT_FALSE(buffer.nextLine());
    EXPECT_FALSE(buffer.isOverLimit());
    buffer.append("5");
    EXPECT_FALSE(buffer.nextLine());
    EXPECT_TRUE(buffer.isOverLimit());
}

TEST(ParseMessage, ANullResultIsAnAnswerAndSoIsARefusalWithoutAWord)
{
    const auto null = std::get<Answer>(parseMessage(R"({"jsonrpc":"2.0","id":1,"result":null,"error":null})"));
    EXPECT_TRUE(null.result->is_null());
    const auto odd = std::get<Answer>(parseMessage(R"({"id":3,"error":"odd"})"));
    EXPECT_EQ(odd.id, 3);
    EXPECT_EQ(odd.result.error().message, "the daemon refused without saying why");
}

} // namespace
} // namespace meridal
