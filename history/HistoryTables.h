// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "database/SqlValue.h"
#include "database/StatementBatch.h"
#include "database/TableSchema.h"
#include "history/HistoryReader.h"
#include "history/HistoryTraits.h"
#include "history/LongTermThinning.h"
#include "history/SampleRecords.h"
#include "history/SampleRing.h"

#include <array>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

namespace meridal {

class HistoryDatabaseItem;
struct Context;

/// The file of all storages but the long-term one, and the file of that one.
enum class HistoryFile : int { Short, LongTerm };
constexpr std::array<HistoryFile, 2> historyFiles = {HistoryFile::Short, HistoryFile::LongTerm};
constexpr HistoryFile fileOf(StorageIndex index)
{
    return index == StorageIndex::LongTerm ? HistoryFile::LongTerm : HistoryFile::Short;
}

/// A finished period, as it becomes rows.
struct PeriodSample {
    struct Item {
        std::string key;
        SampleAverages averages;
    };

    std::uint64_t sampleID = 0;
    double time = 0;         ///< when it ended, s since 1970
    SampleAverages own = {}; ///< of the recorder itself
    std::vector<Item> items; ///< those that were measured

    bool isMeasured() const { return own.samples > 0 || !items.empty(); }
};

/// The tables of a recorder in its two files: what they are called and look like, how samples become rows, which rows go.
/// Rows are queued and reach the file with its next commit. Without a file they go nowhere. Main queue only.
class HistoryTables {
public:
    HistoryTables(Context& context, HistoryTraits traits);

    const HistoryTraits& traits() const { return traits_; }
    /// The file of a storage, which is opened; null without one. While nothing is recorded none is made.
    std::shared_ptr<HistoryDatabaseItem> databaseForIndex(StorageIndex index) const;
    void setRecording(bool recording) { isRecording_ = recording; }
    /// What reading them takes. In it their names: a storage's prefix, the recorder's, and "history", or "idhistory" for
    /// the identifiers and times when the values are the items'.
    const HistoryReadPlan& readPlan() const { return plan_; }
    /// Has a file's tables made where they are missing.
    void declareTables(HistoryFile which);

    void insertSample(const PeriodSample& sample, StorageIndex index);
    /// Which periods of a table hold measurements, as it was read.
    void setMeasured(StorageIndex index, const std::vector<std::uint64_t>& measured);
    /// Removes rows older than the newest 603 samples with a measurement, and empty ones older than the newest 603 of all.
    /// Nothing in the long-term store.
    void removeOldSamplesAtIndex(StorageIndex index, double newestID);
    /// Thins out what is too old for rows of five minutes.
    void thinLongTerm(double now, LongTermThinning::Oldest oldest);
    /// Writes what is queued for both files.
    void runDatabaseQueue();

private:
    using Text = std::shared_ptr<const StatementText>;
    struct Storage {
        Text insert;
        Text insertItem;
        Text prune;
        Text pruneItem;  ///< null without an item table
        Text pruneEmpty; ///< removes what holds no measurement from one identifier up to another
        /// The newest 603 identifiers with a measurement, oldest first, so that empty periods never push those out: a clock
        /// that was wrong for a while leaves a table full of empty periods, but takes nothing.
        std::deque<std::uint64_t> measured;
        std::uint64_t cleanedUpTo = 0; ///< no empty period is stored below this identifier
    };
    bool isOfItems() const { return traits_.storageType == StorageType::Items; }
    void prepareStorage(StorageIndex index);
    std::string insertText(StorageIndex index, bool ofItems) const;
    TableSchema schemaOf(const std::string& table, bool ofItems) const;
    void addFigures(const SampleAverages& averages, StorageIndex index);

    Context& context_;
    const HistoryTraits traits_;
    HistoryReadPlan plan_;
    bool isRecording_ = true;
    std::array<Storage, storageCount> storages_;
    std::shared_ptr<LongTermThinning> thinning_; ///< touched on the file's queue only
    SqlValues rowArgs_;                          ///< of the row being queued; kept for its memory
};

} // namespace meridal
