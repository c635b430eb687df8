#pragma once

#include "database/SqlValue.h"
#include "database/TableSchema.h"

#include <string>

namespace meridal {

/// Whose figures the rows of a key are, for people.
struct SeriesName {
    std::string name;   ///< a sensor's label, a disk's or battery's model; empty: nobody knows
    std::string origin; ///< a sensor's chip, a disk's device; empty where there is nothing to say
    std::string unit;   ///< of the figures; empty where they are of several kinds, or plain numbers
};

/// The table `names`: what the keys in a file's `uuid` columns stand for.
const TableSchema& seriesNamesTable();
/// What records a name there, in place of an earlier one.
PendingStatement seriesNameStatement(const std::string& key, const SeriesName& name);
/// The view TABLE_named on a table with columns `uuid` and `time`: all of its columns, after the time in words ("ended"), the
/// name, the origin and the unit.
ViewSchema namedView(const std::string& table);

} // namespace meridal
