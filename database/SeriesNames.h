// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "database/SqlValue.h"
#include "database/TableSchema.h"

#include <string>
#include <vector>

namespace meridal {

class HistoryDatabaseItem;

/// Whose figures the rows of a key are, for people and for lists of what was recorded.
struct SeriesName {
    std::string collector; ///< who records it: its name in the catalogue of series
    std::string name;      ///< a sensor's label, a disk's or battery's model
    std::string origin;    ///< a sensor's chip, a disk's device; empty where there is nothing to say
    std::string unit;      ///< of the figures; empty for plain numbers
    double step = 0;       ///< what the figures are rounded to for clients other than root; 0 when they are not
};

/// The table `recorded_series`: what the keys in a file's `uuid` columns stand for, by collector.
const TableSchema& recordedSeriesTable();
/// What records a name there, in place of an earlier one.
PendingStatement seriesNameStatement(const std::string& key, const SeriesName& name);
/// Makes sure of that table, of the view `names` on it (one row a key), and of a view TABLE_named on each of these tables,
/// which have columns `uuid` and `time`: all of their columns, after the time in words ("ended"), the name, the origin and
/// the unit.
void declareSeriesNames(HistoryDatabaseItem& file, const std::vector<std::string>& tables);

} // namespace meridal
