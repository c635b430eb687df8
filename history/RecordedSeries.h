// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Lifetime.h"
#include "base/Runtime.h"
#include "history/HistoryCatalogue.h"

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace meridal {

class HistoryDatabaseItem;

/// Which series of a collector have been recorded, kept in the table `recorded_series` of its history files: what a chip or
/// a disk told stays listed and can be read while it is away, also after a restart, and people find its name beside its
/// figures. Main queue only.
class RecordedSeries {
public:
    /// The name in the catalogue and the figures of each sample.
    RecordedSeries(Runtime& runtime, std::string collector, std::vector<std::string> values);

    /// The first of the figures.
    const std::string& value() const { return values_.front(); }

    /// Reads what earlier runs kept; takes effect later. Once that has worked, further calls do nothing.
    void load(HistoryDatabaseItem& file);
    bool isLoading() const { return isLoading_; }
    /// Runs it once what is being loaded has been read, or could not be within some seconds.
    void whenLoaded(Task task) { waiting_.push_back(std::move(task)); }
    using Files = std::vector<std::shared_ptr<HistoryDatabaseItem>>;
    /// Keeps that a series has samples, in each of the files that are not null; the first one is what load() reads, and
    /// nothing is kept without it. Cheap when nothing of it is new.
    void note(const Files& files, const HistorySeries& series);
    /// Adds the known ones that are not among these.
    void addAbsent(std::vector<HistorySeries>& series) const;

    static constexpr std::size_t most = 4096; ///< the newest are kept

private:
    void endWait();

    Runtime& runtime_;
    std::string collector_;
    std::vector<std::string> values_;
    std::map<std::string, HistorySeries> known_; ///< by key
    std::map<std::string, double> renewAt_;      ///< by key: monotonic s; what has none is of an earlier run
    bool isLoaded_ = false;
    bool isLoading_ = false;
    std::vector<Task> waiting_; ///< for the end of loading
    Lifetime lifetime_;
};

} // namespace meridal
