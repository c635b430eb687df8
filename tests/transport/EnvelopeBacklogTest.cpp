#include "daemon/transport/EnvelopeBacklog.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace meridal {
namespace {

EnvelopePtr figureOf(const std::string& type, int figure)
{
    return std::make_shared<const Envelope>(Dictionary{{"type", type}, {"figure", figure}});
}

TEST(EnvelopeBacklog, StalledClientKeepsOnlyTheNewestOfEachType)
{
    EnvelopeBacklog backlog;
    EXPECT_FALSE(backlog.put(figureOf("1", 0)));
    EXPECT_FALSE(backlog.put(figureOf("16", 0)));
    for (int tick = 1; tick <= 10'000; ++tick) {
        EXPECT_TRUE(backlog.put(figureOf("1", tick)));
    }

    const auto waiting = backlog.takeAll();
    ASSERT_EQ(waiting.size(), 2U);
    EXPECT_EQ(waiting[0]->type(), 16);
    EXPECT_EQ(waiting[1]->dictionary().at("figure"), 10'000);
    EXPECT_TRUE(backlog.empty());
    EXPECT_FALSE(backlog.put(figureOf("1", 1))) << "what was taken is no longer replaced";
}

} // namespace
} // namespace meridal
