#pragma once

#include "base/Lifetime.h"
#include "collectors/HistoryCatalogue.h"

#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace meridal {

class HistoryDatabaseItem;
class Queue;
struct TableSchema;

/// Which series of a collector have been recorded, kept in its history file: what a chip or a disk told stays listed and
/// can be read while it is away, also after a restart. Main queue only.
class RecordedSeries {
public:
    /// The name in the catalogue and the figures of each sample.
    RecordedSeries(Queue& mainQueue, std::string collector, std::vector<std::string> values);

    static const TableSchema& table();
    /// The first of the figures.
    const std::string& value() const { return values_.front(); }

    /// Reads what earlier runs kept; takes effect later. Once that has worked, further calls do nothing.
    void load(HistoryDatabaseItem& file);
    /// Keeps that a series has samples. Cheap when nothing of it is new.
    void note(HistoryDatabaseItem& file, const HistorySeries& series);
    /// Adds the known ones that are not among these.
    void addAbsent(std::vector<HistorySeries>& series) const;

    static constexpr std::size_t most = 4096; ///< the newest are kept

private:
    Queue& mainQueue_;
    std::string collector_;
    std::vector<std::string> values_;
    std::map<std::string, HistorySeries> known_; ///< by key
    std::set<std::string> noted_;                ///< keys whose rows are of this run
    bool isLoaded_ = false;
    Lifetime lifetime_;
};

} // namespace meridal
