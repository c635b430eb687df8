// SPDX-License-Identifier: Apache-2.0
#include "wire/DaemonMessage.h"

#include <gtest/gtest.h>

namespace meridal {
namespace {

TEST(ParseMessage, ANullResultIsAnAnswerAndSoIsARefusalWithoutAWord)
{
    const auto null = std::get<Answer>(parseMessage(R"({"jsonrpc":"2.0","id":1,"result":null,"error":null})"));
    EXPECT_TRUE(null.result->is_null());
    const auto odd = std::get<Answer>(parseMessage(R"({"id":3,"error":"odd"})"));
    EXPECT_EQ(odd.id, 3);
    EXPECT_EQ(odd.result.error().message, "the daemon refused without saying why");
}

TEST(ParseMessage, ChangesOfWhatIsWatchedComeUnderTheMethodThatAskedForThem)
{
    const auto told = std::get<Notification>(parseMessage(R"({"method":"machine.watch","params":{"cpu":{"busy":1}}})"));
    EXPECT_EQ(told.method, "machine.watch");
    EXPECT_EQ(told.changes["cpu"]["busy"], 1);
    for (const char* none :
        {R"({"method":"machine.watch"})", R"({"method":"x","params":[1]})", R"({"method":1,"params":{}})"}) {
        EXPECT_TRUE(std::holds_alternative<std::monostate>(parseMessage(none))) << none;
    }
}

} // namespace
} // namespace meridal
