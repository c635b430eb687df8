// SPDX-License-Identifier: Apache-2.0
// Which of the stored rows speak for a moment.

#include "history/HistoryMoment.h"
#include "database/SQLiteConnection.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace meridal {
namespace {

constexpr double now = 1'795'262'400; // s since 1970
constexpr double aDay = 86'400;

/// Tables of a recorder of items in memory. The value of each row is the length of its period.
class HistoryMomentTest : public testing::Test {
protected:
    HistoryMomentTest()
    {
        EXPECT_TRUE(database.openInMemory());
        plan.columns = {"value"};
        for (const auto& [index, name] : names) {
            plan.tables[position(index)] = {.table = name + "_ids", .itemTable = name + "_rows"};
            run(fmt::format("CREATE TABLE {}_ids (sample INTEGER PRIMARY KEY, time REAL)", name));
            run(fmt::format(
                "CREATE TABLE {}_rows (sample INTEGER, uuid TEXT, time REAL, value REAL, PRIMARY KEY (sample, "
                "uuid)) WITHOUT ROWID",
                name));
        }
    }
    void run(const std::string& sql) { ASSERT_TRUE(database.execute(sql)) << sql; }
    /// Rows of "often" every `step` s in a span, and of "seldom" once in an hour.
    void fill(StorageIndex index, double from, double until, double step)
    {
        const std::string& name = names.at(index);
        run("BEGIN");
        for (double time = from; time <= until; time += step, identifier += 3) { // thinned tables have holes
            run(fmt::format("INSERT INTO {}_ids VALUES ({}, {})", name, identifier, time));
            run(fmt::format("INSERT INTO {}_rows VALUES ({}, 'often', {}, {})", name, identifier, time, step));
            if (std::fmod(time, 3600) < step) {
                run(fmt::format("INSERT INTO {}_rows VALUES ({}, 'seldom', {}, {})", name, identifier, time, step));
            }
        }
        run("COMMIT");
    }
    HistoryMoment read(double time)
    {
        HistoryMoment moment(time, now);
        for (const auto& [index, name] : names) {
            RowsOfSpan rows;
            EXPECT_TRUE(readSpan(database, plan, index, moment.spanOf(index), rows));
            moment.add(index, std::move(rows));
        }
        return moment;
    }

    const std::map<StorageIndex, std::string> names = {{StorageIndex::Hour, "hour"}, {StorageIndex::Day, "day"},
        {StorageIndex::Week, "week"}, {StorageIndex::LongTerm, "long"}};
    SQLiteConnection database;
    HistoryReadPlan plan;
    int identifier = 1;
};

TEST_F(HistoryMomentTest, TheFinestTableThatReachesBackSpeaks)
{
    fill(StorageIndex::Hour, now - 1800, now, 6);
    fill(StorageIndex::Day, now - aDay, now - 6 * 3600, 144); // then nothing was measured until the last half hour
    fill(StorageIndex::Day, now - 1800, now, 144);
    fill(StorageIndex::Week, now - 7 * aDay, now, 1008);
    fill(StorageIndex::LongTerm, now - 800 * aDay, now - 740 * aDay, 6 * 3600);
    fill(StorageIndex::LongTerm, now - 200 * aDay, now - 94 * aDay, 3600);
    fill(StorageIndex::LongTerm, now - 10 * aDay, now, 300);
    for (const auto& [ago, length] : {std::pair(60.0, 6.0), std::pair(7.0 * 3600, 144.0), std::pair(3 * aDay, 300.0),
             std::pair(150 * aDay, 3600.0), std::pair(760 * aDay, 6 * 3600.0), std::pair(3.0 * 3600, 0.0),
             std::pair(50 * aDay, 0.0), std::pair(900 * aDay, 0.0)}) {
        const HistoryMoment moment = read(now - ago);
        const auto sample = moment.at("often", 15);
        ASSERT_EQ(sample.has_value(), length > 0) << ago;
        if (sample) {
            EXPECT_EQ(sample->values[0], length) << ago;
            EXPECT_EQ(sample->until - sample->from, length) << ago;
            EXPECT_LE(sample->from, now - ago);
            EXPECT_GE(sample->until, now - ago);
        }
        EXPECT_EQ(moment.oldest(), now - 800 * aDay);
        EXPECT_EQ(moment.newest(), now);
    }
    EXPECT_EQ(read(now + 12).at("often", 15)->until, now) << "the period at hand has not ended";
    EXPECT_FALSE(read(now + 20).at("often", 15));
    EXPECT_FALSE(read(now).at("nobody", 15));
    EXPECT_EQ(read(now - 900).around("often", 15).size(), 101U) << "five minutes before and after";
}

TEST_F(HistoryMomentTest, WhatIsMeasuredSeldomIsFoundNearby)
{
    fill(StorageIndex::Hour, now - 1800, now, 6);
    fill(StorageIndex::Day, now - aDay, now, 144);
    const double measured = now - 3600;
    EXPECT_FALSE(read(measured + 1000).at("seldom", 15));
    const auto sample = read(measured + 1000).at("seldom", 2000);
    ASSERT_TRUE(sample);
    EXPECT_NEAR(sample->until, measured, 144);
}

} // namespace
} // namespace meridal
