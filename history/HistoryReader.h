// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "history/SampleRecords.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

namespace meridal {

class SQLiteConnection;

/// Rows of a history table, oldest first, as flat records: what goes back into the rings at start.
struct StoredRows {
    struct Row {
        std::uint64_t sampleID = 0;
        double time = 0;    ///< s since 1970
        bool empty = false; ///< holds no measurement
    };

    std::vector<Row> rows;
    std::vector<double> values;  ///< valueCount a row; absentFigure is NULL
    std::vector<double> lowest;  ///< what the values are means of lay between these; empty unless asked for
    std::vector<double> highest; ///< absentFigure where that is not known, or the value itself
    std::unordered_map<std::string, std::vector<std::size_t>> byKey; ///< each item's rows; of item tables only
    std::size_t valueCount = 0;

    std::span<const double> valuesOf(std::size_t row) const { return partOf(values, row); }
    std::span<const double> lowestOf(std::size_t row) const { return partOf(lowest, row); }
    std::span<const double> highestOf(std::size_t row) const { return partOf(highest, row); }

private:
    std::span<const double> partOf(const std::vector<double>& figures, std::size_t row) const
    {
        return figures.empty() ? std::span<const double>() : std::span(figures).subspan(row * valueCount, valueCount);
    }
};

/// What the tables of one storage hold. Identifiers go on from the newest one of either table: a table of identifiers that
/// was lost or emptied must not have them given out twice, since every row after that would be refused.
struct StoredStorage {
    bool hasNewest = false;
    std::uint64_t newestID = 0;
    double newestTime = 0; ///< of the newest row that has a time, s since 1970; 0: none has
    double latestTime = 0; ///< not earlier than that; later when the wall clock was set back since
    StoredRows samples;    ///< of the collector
    StoredRows items;
    std::vector<std::uint64_t> measured; ///< the newest 603 identifiers with a measurement, oldest first
};

struct StoredHistory {
    bool readable = true; ///< false: some table could not be read, and nothing here may be relied on
    std::array<StoredStorage, storageCount> storages;
};

/// What to read, decided on the main queue.
struct HistoryReadPlan {
    struct Tables {
        std::string table;       ///< empty: nothing to read
        std::string itemTable;   ///< empty: the samples are the collector's
        std::size_t slots = 0;   ///< newest samples wanted; the newest identifier is read in any case
        bool isPruned = false;   ///< what is measured is wanted, too
        bool marksEmpty = false; ///< the table's column "empty" tells what is measured
    };
    std::array<Tables, storageCount> tables;
    std::vector<std::string> columns;   ///< of the values, in their order
    std::optional<std::string> onlyKey; ///< rows of this item only
    bool withBands = false;             ///< also what the values are means of
};

/// A page of the samples of a collector, or of one of its items, as a client asks for them.
struct HistoryPageQuestion {
    StorageIndex index = StorageIndex::Hour;
    std::string key;                     ///< of the item; of no meaning when the samples are the collector's
    double from = 0;                     ///< s since 1970
    std::optional<double> until;         ///< samples before this moment
    std::optional<std::uint64_t> before; ///< samples of smaller identifiers: the pages before this one
    std::size_t limit = 603;
    bool withBands = false; ///< also what the values are means of
};

/// The newest of the samples asked for, oldest first; periods without a measurement are left out.
struct HistoryPage {
    StoredRows samples;
    bool more = false;      ///< there may be older ones
    std::uint64_t next = 0; ///< with `more`: all has been looked at down to here, which is `before` of the next page
};

/// Identifiers that one page looks at, at most: a week of the long-term store, all that any other table keeps. Reads
/// and writes of a file take turns, so a page must be short whatever is asked.
constexpr std::size_t identifiersOnPage = 2048;

/// Reads a page from a table, which need not be there yet and has its identifiers in an index. A series with few samples,
/// or a far span of time, may give a page with little or nothing on it and more to come. The end is reached when a whole
/// page's identifiers are of times before `from`; a few rows out of order, of a clock that stepped, do not end it. Absent
/// when the table cannot be read. Runs on the database's queue.
std::optional<HistoryPage> readPage(SQLiteConnection& database, const std::string& table, const HistoryReadPlan& plan,
    const HistoryPageQuestion& question);

/// Which part of a table to read: later than `from`, up to `until`. s since 1970.
struct TimeSpan {
    double from = 0;
    double until = 0;
};

/// What a table holds within a span, and from when to when it holds anything.
struct RowsOfSpan {
    StoredRows rows;   ///< of the collector or of all items, oldest first; the oldest 50,000
    double oldest = 0; ///< s since 1970; 0: the table is empty
    double newest = 0;
};

/// Reads the rows of a span from the table of one storage. In the long-term table, which has no index by time, they are
/// looked for as if times never went back. False when it cannot be read. Runs on the database's queue.
bool readSpan(SQLiteConnection& database, const HistoryReadPlan& plan, StorageIndex index, const TimeSpan& span,
    RowsOfSpan& found);

/// Reads the tables of one storage. False when they cannot be read. Runs on the database's queue.
bool readStorage(SQLiteConnection& database, const HistoryReadPlan& plan, StorageIndex index, StoredStorage& stored);

} // namespace meridal
