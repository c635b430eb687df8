// SPDX-License-Identifier: Apache-2.0
// Eleven years of a long-term store: what thinning leaves is few, is the mean of what was there, and can be read at any age.

#include "history/LongTermThinning.h"
#include "database/SQLiteConnection.h"
#include "history/HistoryReader.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

namespace meridal::test {
namespace {

class LongTermThinningTest : public testing::Test {
protected:
    static constexpr double hour_ = 3600;
    static constexpr double day_ = 24 * hour_;
    static constexpr double tenYears_ = 3653 * day_;
    static constexpr double now_ = 1'700'006'400; // a whole day, s since 1970

    /// Rows from eleven years ago until now, so many seconds apart: coarse ones, and fine ones around the ages at which
    /// less is kept. For some hours the clock was wrong, and one row has lost its time.
    void fill(const std::string& create, const std::string& columns)
    {
        ASSERT_TRUE(database_.openInMemory());
        run("CREATE TABLE labels (sample INTEGER PRIMARY KEY, time REAL)");
        const auto rows = [&](double from, double until, double apart) {
            run(fmt::format("WITH RECURSIVE t(n) AS (VALUES ({0}) UNION ALL SELECT n + {2} FROM t WHERE n + {2} < {1}) "
                            "INSERT INTO labels (time) SELECT n FROM t",
                now_ - from, now_ - until, apart));
        };
        rows(4015 * day_, 740 * day_, 7 * hour_);
        rows(740 * day_, 720 * day_, 300);
        rows(720 * day_, 100 * day_, 5 * hour_);
        run("UPDATE labels SET time = 5 + sample WHERE sample IN (3000, 3001)");
        run(fmt::format("UPDATE labels SET time = {} WHERE sample = 8000", now_ + 400 * day_));
        run("UPDATE labels SET time = NULL WHERE sample = 8001");
        rows(100 * day_, 0, 300);
        run(create);
        run("INSERT INTO t SELECT " + columns + " FROM labels");
        run("CREATE TABLE before AS SELECT * FROM t");
    }
    void run(const std::string& sql) { EXPECT_TRUE(database_.execute(sql)) << sql; }
    double figure(const std::string& sql)
    {
        double result = -1;
        EXPECT_TRUE(database_.forEachRow(sql, {}, [&](std::span<const SqlValue> row) { result = sqlNumber(row[0]); }))
            << sql;
        return result;
    }
    /// Steps until nothing changes any more; how many it took.
    int thin(const LongTermTables& tables)
    {
        LongTermThinning thinning(tables);
        int steps = 0;
        for (double rows = -1, left = figure("SELECT count(*) FROM t"); rows != left && steps < 2000; ++steps) {
            rows = left;
            thinning.step(database_, now_, tenYears_, LongTermThinning::Oldest::Removed);
            left = figure("SELECT count(*) FROM t");
            EXPECT_LT(rows - left, 5000) << "a little at a time";
        }
        return steps;
    }
    /// No step of these ages has more than one row of a thing, and each row is the mean of what was there.
    void expectThinned(double oldest, double youngest, double step, const std::string& group)
    {
        SCOPED_TRACE(step);
        const auto slots = [&](const char* table, const std::string& figures) {
            return fmt::format("SELECT CAST(ceil(time / {0}) AS INTEGER) AS slot, {1} FROM {2} "
                               "WHERE time > {3} AND time <= {4} {5} GROUP BY slot{6}",
                step, figures, table, now_ - oldest, now_ - youngest, group.empty() ? "AND empty = 0" : "",
                group.empty() ? "" : ", " + group);
        };
        const std::string after =
            slots("t", "count(*) AS rows, avg(value) AS value" + (group.empty() ? "" : ", " + group));
        const std::string once = slots("before", "avg(value) AS value" + (group.empty() ? "" : ", " + group));
        EXPECT_EQ(figure("SELECT max(rows) FROM (" + after + ")"), 1);
        EXPECT_EQ(figure("SELECT count(*) FROM (" + after + ")"), figure("SELECT count(*) FROM (" + once + ")"));
        EXPECT_LT(figure(fmt::format("SELECT max(abs(a.value - b.value)) FROM ({}) a JOIN ({}) b USING (slot{})", after,
                      once, group.empty() ? "" : ", " + group)),
            1e-6);
    }

    SQLiteConnection database_;
};

TEST_F(LongTermThinningTest, OldRowsOfItemsBecomeOneAStepAndStayReadable)
{
    fill("CREATE TABLE t (sample INTEGER, uuid TEXT, time REAL, value REAL, PRIMARY KEY (sample, uuid)) WITHOUT ROWID",
        "sample, 'fan', time, sample % 100");
    run("INSERT INTO t SELECT sample, 'disk', time, sample % 7 FROM labels WHERE sample % 5 <> 0"); // comes and goes
    run("DROP TABLE before");
    run("CREATE TABLE before AS SELECT * FROM t");
    const LongTermTables tables{.table = "labels", .itemTable = "t", .values = {"value"}};
    thin(tables);
    expectThinned(3653 * day_, 732 * day_, 6 * hour_, "uuid");
    expectThinned(730 * day_, 94 * day_, hour_, "uuid");
    EXPECT_EQ(figure(fmt::format("SELECT count(*) FROM t WHERE time BETWEEN 1e6 AND {}", now_ - 3654 * day_)), 0);
    const std::string young = fmt::format(" WHERE time > {}", now_ - 92 * day_);
    EXPECT_EQ(figure("SELECT count(*) FROM t" + young), figure("SELECT count(*) FROM before" + young));
    EXPECT_EQ(figure("SELECT count(*) FROM t WHERE sample NOT IN (SELECT sample FROM labels)"), 0);
    EXPECT_EQ(figure("SELECT count(*) FROM t a JOIN labels b USING (sample) WHERE a.time <> b.time"), 0);
    EXPECT_EQ(figure("SELECT count(*) FROM labels WHERE sample IN (8000, 8001)"), 2) << "no time to go by";
    EXPECT_EQ(thin(tables), 1) << "after a restart there is nothing left to do";

    const HistoryReadPlan plan{.tables = {}, .columns = {"value"}, .onlyKey = {}};
    std::size_t read = 0;
    HistoryPageQuestion question{.index = StorageIndex::LongTerm, .key = "disk", .until = {}, .before = {}};
    for (bool more = true; more;) {
        const auto page = readPage(database_, "t", plan, question);
        ASSERT_TRUE(page);
        read += page->samples.rows.size();
        more = page->more;
        question.before = page->next;
    }
    EXPECT_EQ(static_cast<double>(read), figure("SELECT count(*) FROM t WHERE uuid = 'disk' AND time > 0"));
}

TEST_F(LongTermThinningTest, EmptyRowsOfACollectorWeighNothing)
{
    fill("CREATE TABLE t (sample INTEGER PRIMARY KEY, time REAL, empty INTEGER, value REAL, value_low REAL, value_high "
         "REAL)",
        "sample, time, sample % 3 = 0, CASE WHEN sample % 3 = 0 THEN 0 ELSE sample % 100 END, "
        "CASE sample % 3 WHEN 1 THEN sample % 100 - sample % 7 END, CASE sample % 3 WHEN 1 THEN sample % 100 + 1 END");
    thin({.table = "t", .itemTable = {}, .values = {"value"}});
    expectThinned(730 * day_, 94 * day_, hour_, "");
    EXPECT_LT(figure("SELECT count(*) FROM t"), 60'000);
    // What a row lies between is what all that it stands for lay between; rows of before that was kept count as they are.
    const std::string hours = fmt::format(
        "WHERE empty = 0 AND time > {} AND time <= {} GROUP BY ceil(time / 3600)", now_ - 730 * day_, now_ - 94 * day_);
    EXPECT_EQ(figure("SELECT sum(low) FROM (SELECT min(coalesce(value_low, value)) AS low FROM t " + hours + ")"),
        figure("SELECT sum(low) FROM (SELECT min(coalesce(value_low, value)) AS low FROM before " + hours + ")"));
    EXPECT_EQ(figure("SELECT sum(high) FROM (SELECT max(coalesce(value_high, value)) AS high FROM t " + hours + ")"),
        figure("SELECT sum(high) FROM (SELECT max(coalesce(value_high, value)) AS high FROM before " + hours + ")"));
    // A clock that stands in 1970 makes nothing old.
    const double rows = figure("SELECT count(*) FROM t");
    LongTermThinning thinning({.table = "t", .itemTable = {}, .values = {"value"}});
    thinning.step(database_, 100, tenYears_, LongTermThinning::Oldest::Removed);
    EXPECT_EQ(figure("SELECT count(*) FROM t"), rows);
    // One that nobody vouches for takes no row away, however far ahead it stands.
    const double oldest = figure("SELECT min(time) FROM t WHERE time > 1e6");
    thinning.step(database_, now_ + 11 * 365 * day_, tenYears_, LongTermThinning::Oldest::Kept);
    EXPECT_EQ(figure("SELECT min(time) FROM t WHERE time > 1e6"), oldest);
    thinning.step(database_, now_ + 11 * 365 * day_, tenYears_, LongTermThinning::Oldest::Removed);
    EXPECT_GT(figure("SELECT min(time) FROM t WHERE time > 1e6"), oldest);
}

} // namespace
} // namespace meridal::test
