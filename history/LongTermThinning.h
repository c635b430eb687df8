// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <utility>

namespace meridal {

class SQLiteConnection;

/// From an age on, the long-term store keeps one row a step. In seconds.
struct LongTermStep {
    double age = 0;
    double step = 0;
};

constexpr std::array<LongTermStep, 2> longTermSteps = {{{93 * 86'400.0, 3600}, {731 * 86'400.0, 6 * 3600.0}}};

/// Where the rows of a long-term store lie.
struct LongTermTables {
    std::string table;            ///< of the samples, or of their identifiers when the values are the items'
    std::string itemTable;        ///< empty: the samples are the collector's
    std::set<std::string> values; ///< columns that are averaged; what they lie between is kept beside them
};

/// Makes old rows of a long-term store few: 20 sensors fill 22 MB in the first year and 35 MB in ten (two thirds more if all
/// of them move), where rows of five minutes for ever would take 68 MB a year. The rows of an hour, later of six, become one: the newest of them, with the
/// mean of all. Rows that are one already are passed over, so that nothing need be remembered between runs. Pages that
/// come free are used again; the file does not shrink.
///
/// Confined to the file's queue.
class LongTermThinning {
public:
    explicit LongTermThinning(LongTermTables tables) : tables_(std::move(tables)) { }

    /// What becomes of rows that are older than any should be. Kept while nobody vouches for the clock: one that stands
    /// eleven years ahead makes all of them so, and rows of six hours that stay too long take little room.
    enum class Oldest { Kept, Removed };

    /// Does a little of what there is to do, in a transaction of its own: some tens of milliseconds at most. What fails
    /// is done at the next call. `now` is in seconds since 1970; rows older than `longestAge`, in seconds, are too old.
    void step(SQLiteConnection& database, double now, double longestAge, Oldest oldest);

private:
    struct Group {
        std::int64_t first = 0; ///< identifiers
        std::int64_t last = 0;
        std::int64_t identifiers = 0;
        double slot = 0; ///< which step of all time
        double time = 0; ///< of the last one
        bool sound = false;
    };

    std::optional<std::int64_t> thin(
        SQLiteConnection& database, const LongTermStep& step, double now, std::int64_t& from) const;
    bool merge(SQLiteConnection& database, const Group& group) const;
    bool removeOldest(SQLiteConnection& database, double before) const;
    bool findColumns(SQLiteConnection& database);
    std::string termOf(const std::string& column) const;

    LongTermTables tables_;
    std::string mergeSql_;                                     ///< empty until the columns are known
    std::array<std::int64_t, longTermSteps.size()> from_ = {}; ///< all older identifiers are thinned
};

} // namespace meridal
