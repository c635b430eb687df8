// SPDX-License-Identifier: Apache-2.0
#include "base/DeadlineTable.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cmath>
#include <map>

namespace meridal {
namespace {

TEST(DeadlineTable, TimersOfOneIntervalShareTheirWakeUps)
{
    DeadlineTable table;
    const double interval = 2;
    const double leeway = 0.2;
    for (DeadlineTable::Id id = 0; id < 4; ++id) {
        table.add(id, interval + 0.05 * static_cast<double>(id), leeway); // started one after another
    }
    int wakeUps = 0;
    for (double now = 0; now < 3600; ++wakeUps) {
        now = *table.wakeTime();
        const auto due = table.takeDue(now);
        EXPECT_EQ(due.size(), 4U);
        for (const auto& [id, deadline] : due) {
            table.add(id, nextInRhythm(deadline, interval, now), leeway);
        }
    }
    EXPECT_EQ(wakeUps, 1800);
}

TEST(DeadlineTable, NobodyIsLateButForCompany)
{
    DeadlineTable table;
    table.add(1, 0.6, 0.2);
    EXPECT_EQ(table.wakeTime(), 0.6) << "alone";
    table.add(2, 0.9, 0.2);
    EXPECT_EQ(table.wakeTime(), 0.6) << "too late to be waited for";
    table.add(3, 0.75, 5);
    EXPECT_EQ(table.wakeTime(), 0.75) << "both at once";
    table.add(4, 0.5, 0);
    EXPECT_EQ(table.wakeTime(), 0.5) << "one without patience";
}

RC_GTEST_PROP(DeadlineTable, NobodyIsServedEarlyOrBeyondHisLeeway, ())
{
    DeadlineTable table;
    std::map<DeadlineTable::Id, std::pair<double, double>> model;
    const auto count = *rc::gen::inRange<DeadlineTable::Id>(0, 30);
    for (DeadlineTable::Id id = 0; id < count; ++id) {
        const double deadline = *rc::gen::inRange(0, 100);
        const double leeway = *rc::gen::inRange(0, 20);
        table.add(id, deadline, leeway);
        model[id] = {deadline, leeway};
        if (*rc::gen::inRange(0, 4) == 0) {
            table.remove(id);
            model.erase(id);
        }
    }
    while (const auto now = table.wakeTime()) { // sleeping until then keeps every promise
        double last = 0;
        for (const auto& [id, deadline] : table.takeDue(*now)) {
            RC_ASSERT(deadline >= last && deadline <= *now && *now <= deadline + model.at(id).second);
            RC_ASSERT(deadline == model.at(id).first);
            last = deadline;
            model.erase(id);
        }
    }
    RC_ASSERT(model.empty() && table.empty());
}

TEST(DeadlineTable, RhythmLeavesOutWhatWasMissed)
{
    EXPECT_EQ(nextInRhythm(10, 2, 10), 12);
    EXPECT_EQ(nextInRhythm(10, 2, 10.3), 12);
    EXPECT_EQ(nextInRhythm(10, 2, 17.5), 18);
    EXPECT_EQ(nextInRhythm(10, 2, 18), 20);
    EXPECT_TRUE(rc::check("the next moment is ahead, at most one interval", [] {
        const double deadline = *rc::gen::inRange(0, 1'000'000) * 1e-3;
        const double interval = *rc::gen::inRange(1, 10'000) * 1e-3;
        const double now = deadline + *rc::gen::inRange(0, 1'000'000'000) * 1e-3;
        const double next = nextInRhythm(deadline, interval, now);
        RC_ASSERT(next > now && next <= now + interval * 1.0001);
        const double beats = (next - deadline) / interval;
        RC_ASSERT(std::abs(beats - std::round(beats)) < 1e-3);
    }));
    EXPECT_GT(nextInRhythm(1e9, 1e-30, 2e9), 2e9) << "an interval that the clock cannot tell from zero";
}

} // namespace
} // namespace meridal
