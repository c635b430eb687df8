// SPDX-License-Identifier: Apache-2.0
#include "client/screen/Moments.h"

#include "client/screen/WallClock.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cstdlib>
#include <ctime>

namespace meridal {
namespace {

constexpr const char* berlin = "CET-1CEST,M3.5.0,M10.5.0/3";
constexpr const char* newYork = "EST5EDT,M3.2.0,M11.1.0";

class MomentsTest : public testing::Test {
protected:
    ~MomentsTest() override { inZone("UTC"); }
    static void inZone(const char* zone)
    {
        ::setenv("TZ", zone, 1);
        ::tzset();
    }
};

TEST_F(MomentsTest, AreWhatAPersonMeansByThem)
{
    const struct {
        const char* zone;
        const char* now;
        const char* text;
        const char* expected; ///< UTC; nothing where it is no moment
    } cases[] = {
        // Sunday, 14:00 in Berlin
        {berlin, "2026-11-22T13:00Z", "now", "2026-11-22T13:00:00Z"},
        {berlin, "2026-11-22T13:00Z", "Tue 03:00", "2026-11-17T02:00:00Z"},
        {berlin, "2026-11-22T13:00Z", "tuesday at 3:00 AM", "2026-11-17T02:00:00Z"},
        {berlin, "2026-11-22T13:00Z", "Sun 13:59", "2026-11-22T12:59:00Z"},
        {berlin, "2026-11-22T13:00Z", "Sun 14:01", "2026-11-15T13:01:00Z"},
        {berlin, "2026-11-22T13:00Z", "last Sunday", "2026-11-14T23:00:00Z"},
        {berlin, "2026-11-22T13:00Z", "yesterday 18:30", "2026-11-21T17:30:00Z"},
        {berlin, "2026-11-22T13:00Z", "today, noon", "2026-11-22T11:00:00Z"},
        {berlin, "2026-11-22T13:00Z", "13:00", "2026-11-22T12:00:00Z"},
        {berlin, "2026-11-22T13:00Z", "11:30 pm", "2026-11-21T22:30:00Z"},
        {berlin, "2026-11-22T13:00Z", "12 am", "2026-11-21T23:00:00Z"},
        {berlin, "2026-11-22T13:00Z", "-2h", "2026-11-22T11:00:00Z"},
        {berlin, "2026-11-22T13:00Z", "1 week 30 min ago", "2026-11-15T12:30:00Z"},
        {berlin, "2026-11-22T13:00Z", "-1.5h", "2026-11-22T11:30:00Z"},
        {berlin, "2026-11-22T13:00Z", "2026-11-20", "2026-11-19T23:00:00Z"},
        {berlin, "2026-11-22T13:00Z", "2026-11", "2026-10-31T23:00:00Z"},
        {berlin, "2026-11-22T13:00Z", "2026-07-01 18:30:05", "2026-07-01T16:30:05Z"},
        {berlin, "2026-11-22T13:00Z", "2026-07-01T18:30", "2026-07-01T16:30:00Z"},
        {berlin, "2026-11-22T13:00Z", "2026-07-01T18:30Z", "2026-07-01T18:30:00Z"},
        {berlin, "2026-11-22T13:00Z", "2026-07-01T18:30:00.5-05:30", "2026-07-02T00:00:00Z"},
        {berlin, "2026-11-22T13:00Z", "2026-07-01 18:30 +0200", "2026-07-01T16:30:00Z"},
        {berlin, "2026-11-22T13:00Z", "20 Nov 18:30", "2026-11-20T17:30:00Z"},
        {berlin, "2026-11-22T13:00Z", "dec 24, 2024", "2024-12-23T23:00:00Z"},
        {berlin, "2026-11-22T13:00Z", "24 December", "2025-12-23T23:00:00Z"},
        {berlin, "2026-11-22T13:00Z", "29 Feb", "2024-02-28T23:00:00Z"},
        {berlin, "2026-11-22T13:00Z", "@1795250400.5", "2026-11-21T08:40:00Z"},
        {berlin, "2026-11-22T13:00Z", "1795250400", "2026-11-21T08:40:00Z"},
        // The night from 28 to 29 March has no 02:00 to 03:00, that of 25 October has it twice
        {berlin, "2026-03-29T16:00Z", "01:59", "2026-03-29T00:59:00Z"},
        {berlin, "2026-03-29T16:00Z", "02:30", "2026-03-29T01:30:00Z"},
        {berlin, "2026-03-29T16:00Z", "03:30", "2026-03-29T01:30:00Z"},
        {berlin, "2026-03-29T16:00Z", "yesterday 18:00", "2026-03-28T17:00:00Z"},
        {berlin, "2026-03-29T16:00Z", "-1d", "2026-03-28T17:00:00Z"},
        {berlin, "2026-03-29T16:00Z", "-24h", "2026-03-28T16:00:00Z"},
        {berlin, "2026-10-25T13:00Z", "02:30", "2026-10-25T00:30:00Z"},
        {berlin, "2026-10-25T13:00Z", "2026-10-25T02:30+01:00", "2026-10-25T01:30:00Z"},
        {berlin, "2026-10-25T13:00Z", "03:00", "2026-10-25T02:00:00Z"},
        {berlin, "2026-10-25T13:00Z", "today", "2026-10-24T22:00:00Z"},
        {berlin, "2026-10-25T23:30Z", "yesterday", "2026-10-24T22:00:00Z"},
        // And of 8 March and 1 November in New York
        {newYork, "2026-03-08T16:00Z", "2:30am", "2026-03-08T07:30:00Z"},
        {newYork, "2026-03-09T03:30Z", "Sat 23:30", "2026-03-08T04:30:00Z"},
        {newYork, "2026-11-01T17:00Z", "01:30", "2026-11-01T05:30:00Z"},
        {newYork, "2026-11-01T17:00Z", "2 days ago", "2026-10-30T16:00:00Z"},
        {newYork, "2026-05-31T16:00Z", "-1 month", "2026-04-30T16:00:00Z"},
        {newYork, "2024-02-29T17:00Z", "-1y", "2023-02-28T17:00:00Z"},
        // What is none
        {berlin, "2026-11-22T13:00Z", "", "-"},
        {berlin, "2026-11-22T13:00Z", "soon", "-"},
        {berlin, "2026-11-22T13:00Z", "Tue 25:00", "-"},
        {berlin, "2026-11-22T13:00Z", "Tue 03:60", "-"},
        {berlin, "2026-11-22T13:00Z", "13 pm", "-"},
        {berlin, "2026-11-22T13:00Z", "2026-02-30", "-"},
        {berlin, "2026-11-22T13:00Z", "2026-13", "-"},
        {berlin, "2026-11-22T13:00Z", "2026-11-20T", "-"},
        {berlin, "2026-11-22T13:00Z", "2h", "-"},
        {berlin, "2026-11-22T13:00Z", "-", "-"},
        {berlin, "2026-11-22T13:00Z", "-2 parsecs", "-"},
        {berlin, "2026-11-22T13:00Z", "-99 years", "-"},
        {berlin, "2026-11-22T13:00Z", "1234567890123", "-"},
    };
    for (const auto& each : cases) {
        inZone(each.zone);
        const auto now = momentFrom(each.now, 0);
        ASSERT_TRUE(now) << each.now;
        EXPECT_EQ(formatTime(momentFrom(each.text, *now), "%Y-%m-%dT%H:%M:%SZ", TimeZone::Utc), each.expected)
            << each.text << " at " << each.now << " in " << each.zone;
    }
    EXPECT_EQ(momentFrom("2026-11-22T13:00:00.25Z", 0), 1'795'352'400.25);
    inZone(berlin);
    EXPECT_EQ(isoTime(1'795'352'400.25), "2026-11-22T14:00:00.250+01:00");
    inZone("UTC");
    EXPECT_EQ(isoTime(1'795'352'400), "2026-11-22T13:00:00Z");
}

RC_GTEST_PROP(Moments, AnyTextIsAMomentOrNone, (const std::string& text))
{
    const auto moment =
        momentFrom(*rc::gen::element(std::string(), std::string("2026-"), std::string("-9")) + text, 1.7e9);
    RC_ASSERT(!moment || (*moment >= 0 && *moment < 1e11));
}

} // namespace
} // namespace meridal
