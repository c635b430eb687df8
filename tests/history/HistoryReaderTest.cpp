// SPDX-License-Identifier: Apache-2.0
// Pages of a table of years: whole, in order, and never long to read.

#include "history/HistoryReader.h"

#include "database/SQLiteConnection.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace meridal::test {
namespace {

constexpr double start = 1.7e9; // s since 1970
constexpr std::int64_t samples = 10'000;

double timeOf(std::int64_t sample) { return start + 300.0 * static_cast<double>(sample); }

/// Ten items with a value a period, and a rare one with a single value long ago. For ten periods the clock stood in 1970.
class HistoryReaderTest : public testing::Test {
protected:
    HistoryReaderTest()
    {
        EXPECT_TRUE(database_.openInMemory());
        run("CREATE TABLE t (sample INTEGER, uuid TEXT, time REAL, id REAL, PRIMARY KEY (sample, uuid)) WITHOUT ROWID");
        run("BEGIN");
        for (std::int64_t sample = 1; sample <= samples; ++sample) {
            const double time = sample >= 9000 && sample < 9010 ? 5.0 : timeOf(sample);
            for (int item = 0; item < 10; ++item) {
                run("INSERT INTO t VALUES (?, ?, ?, ?)",
                    {sample, "item" + std::to_string(item), time, static_cast<double>(sample)});
            }
        }
        run("INSERT INTO t VALUES (?, ?, ?, ?)", {std::int64_t{10}, "rare", timeOf(10), 10.0});
        run("COMMIT");
    }
    void run(const std::string& sql, const SqlValues& args = {}) { EXPECT_TRUE(database_.execute(sql, args)); }

    /// All pages: their samples, newest first.
    std::vector<std::uint64_t> readAll(HistoryPageQuestion question)
    {
        std::vector<std::uint64_t> found;
        pages_ = 0;
        for (bool more = true; more && pages_ < 100; ++pages_) {
            const auto page = readPage(database_, "t", plan_, question);
            if (!page) {
                ADD_FAILURE() << "not read";
                break;
            }
            EXPECT_LE(page->samples.rows.size(), question.limit);
            for (std::size_t row = page->samples.rows.size(); row-- > 0;) {
                found.push_back(page->samples.rows[row].sampleID);
                EXPECT_EQ(page->samples.valuesOf(row)[0], static_cast<double>(found.back()));
            }
            more = page->more;
            EXPECT_TRUE(!more || !question.before || page->next < *question.before) << "must get on";
            question.before = page->next;
        }
        return found;
    }

    SQLiteConnection database_;
    const HistoryReadPlan plan_{.tables = {}, .columns = {"id"}, .onlyKey = {}};
    int pages_ = 0;
};

TEST_F(HistoryReaderTest, PagesJoinUpWithoutHoleOrOverlap)
{
    const auto all =
        readAll({.index = StorageIndex::LongTerm, .key = "item3", .until = {}, .before = {}, .limit = 999});
    ASSERT_EQ(all.size(), static_cast<std::size_t>(samples));
    for (std::size_t place = 0; place < all.size(); ++place) {
        ASSERT_EQ(all[place], static_cast<std::uint64_t>(samples) - place);
    }
    EXPECT_EQ(pages_, 11);
}

TEST_F(HistoryReaderTest, WhatIsRareIsFoundAFewPagesOn)
{
    EXPECT_EQ(readAll({.key = "rare", .until = {}, .before = {}}), std::vector<std::uint64_t>{10});
    EXPECT_EQ(pages_, 5); // of 2048 identifiers each
    EXPECT_TRUE(readAll({.key = "nobody", .until = {}, .before = {}}).empty());
    EXPECT_EQ(pages_, 5);
    EXPECT_EQ(
        readAll({.key = "item1", .from = start, .until = timeOf(3), .before = {}}), (std::vector<std::uint64_t>{2, 1}));
}

TEST_F(HistoryReaderTest, NothingIsLookedForBeforeTheSpan)
{
    EXPECT_TRUE(readAll({.key = "item1", .from = 1e12, .until = {}, .before = {}}).empty());
    EXPECT_EQ(pages_, 1);
    // The periods in which the clock was wrong are no end: what was before them belongs to the span.
    const auto span = readAll({.key = "item1", .from = timeOf(8000), .until = {}, .before = {}, .limit = 1000});
    EXPECT_EQ(span.size(), 2001U - 10);
    EXPECT_EQ(span.back(), 8000U);
}

TEST_F(HistoryReaderTest, ATableThatIsNotThereIsAnEmptyPage)
{
    const auto page = readPage(database_, "nowhere", plan_, {.key = "item1", .until = {}, .before = {}});
    ASSERT_TRUE(page);
    EXPECT_TRUE(page->samples.rows.empty());
    EXPECT_FALSE(page->more);
}

} // namespace
} // namespace meridal::test
