#include "client/Wire.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <vector>

namespace meridal {
namespace {

TEST(LineBuffer, HowTheBytesArriveMakesNoDifference)
{
    const bool holds = rc::check("lines are the same however they are cut", [](const std::vector<std::string>& pieces) {
        std::string all;
        LineBuffer inPieces;
        std::vector<std::string> lines;
        for (const std::string& piece : pieces) {
            const std::string bytes = piece + (piece.size() % 3 == 0 ? "\n" : "");
            all += bytes;
            inPieces.append(bytes);
            while (const auto line = inPieces.nextLine()) {
                lines.push_back(*line);
            }
        }
        LineBuffer atOnce;
        atOnce.append(all);
        for (const std::string& line : lines) {
            RC_ASSERT(atOnce.nextLine() == line);
        }
        RC_ASSERT(!atOnce.nextLine());
    });
    EXPECT_TRUE(holds);
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

TEST(ParseMessage, AnswersWithoutAWordStillSaySomething)
{
    const Incoming message = parseMessage(R"({"id":3,"error":"odd"})");
    ASSERT_TRUE(std::holds_alternative<Answer>(message));
    EXPECT_EQ(std::get<Answer>(message).id, 3);
    EXPECT_EQ(std::get<Answer>(message).result.error().message, "the daemon refused without saying why");
}

TEST(ParseMessage, ANullResultIsAnAnswer)
{
    const Incoming message = parseMessage(R"({"jsonrpc":"2.0","id":1,"result":null,"error":null})");
    ASSERT_TRUE(std::holds_alternative<Answer>(message));
    EXPECT_TRUE(std::get<Answer>(message).result->is_null());
}

} // namespace
} // namespace meridal
