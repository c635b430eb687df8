// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Lifetime.h"
#include "base/Runtime.h"
#include "history/HistoryMoment.h"
#include "history/HistoryReader.h"
#include "history/HistoryTables.h"
#include "history/SampleStorages.h"
#include "history/StorageClock.h"
#include "history/WallClockGuard.h"

#include <array>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace meridal {

class HistoryDatabaseItem;
struct Context;

/// Keeps the history of what its owner measures, in nine resolutions: live samples in memory, averages of them in memory
/// and in tables. The owner adds samples and calls updateHistory() about once a second; the rest is done here. Main queue
/// only; waits for no file.
class HistoryRecorder {
public:
    /// Rows wait this long at most, in seconds, before they are committed. Longer would lose more in a power cut; shorter
    /// would write the same pages of the log more often.
    static constexpr double commitInterval = 30;

    HistoryRecorder(Context& context, HistoryTraits traits);
    virtual ~HistoryRecorder();
    HistoryRecorder(const HistoryRecorder&) = delete;
    HistoryRecorder& operator=(const HistoryRecorder&) = delete;

    const HistoryTraits& traits() const { return tables_.traits(); }
    /// Which of a sample's values a column holds.
    std::optional<std::size_t> columnNamed(std::string_view name) const;

    /// Where the samples of the recorder itself go.
    SampleStorages& own() { return own_; }
    /// Where those of an item go. It is recorded as long as somebody holds this, and finds what was stored of it.
    std::shared_ptr<SampleStorages> item(const std::string& key);

    /// Takes stored history up, hands finished periods over to their tables, has these pruned, and commits twice a minute.
    /// Does nothing until it is called for the first time: no file is made.
    void updateHistory();
    /// Switched off, it takes up, writes and makes nothing: periods pass as if the machine slept. What is in its files can
    /// be read all the same.
    void setRecording(bool recording);
    bool isRecording() const { return isRecording_; }
    /// Writes what is queued.
    void runDatabaseQueue();
    /// Leaves the commits to its owner, who has several recorders of one file and calls runDatabaseQueue() for all at once:
    /// what they record together is one transaction then.
    void leaveCommitsToOwner() { commits_ = false; }
    /// Something to be queued before each commit.
    void setBeforeCommit(Task task) { beforeCommit_ = std::move(task); }

    /// Has the tables of a file made where they are missing; for an owner who reads them before updateHistory() does.
    void declareTables(HistoryFile which) { tables_.declareTables(which); }
    /// The file of a storage, which is opened; null without one.
    std::shared_ptr<HistoryDatabaseItem> databaseForIndex(StorageIndex index) const
    {
        return tables_.databaseForIndex(index);
    }
    /// Both files; null what is not there.
    std::vector<std::shared_ptr<HistoryDatabaseItem>> databases() const;
    /// The clock of a storage with tables.
    const sampleindexconfig& sampleIndex(StorageIndex index) const { return clock(index).record(); }

    /// Reads a page of stored samples, with what still waits to be written. The reply comes on the main queue, absent when
    /// the file cannot be read.
    void readHistory(const HistoryPageQuestion& question, std::function<void(const std::optional<HistoryPage>&)> reply);
    /// Reads what is stored of a moment (s since 1970), with what still waits to be written. The reply comes on the main
    /// queue, null when a file cannot be read.
    void readMoment(double time, std::function<void(const std::shared_ptr<const HistoryMoment>&)> reply);

protected:
    /// What becomes of a finished period; for tests that look at each.
    virtual void insertSampleIntoTableAtIndex(const PeriodSample& sample, StorageIndex index);

private:
    /// Whether the clocks of a file's storages run. They wait until what it holds has been read: started without it, they
    /// would give identifiers out twice. Each file is read, and its clocks run, whatever becomes of the other.
    enum class Phase { NotStarted, Loading, Running };
    struct FileState {
        Phase phase = Phase::NotStarted;
        double nextRead = 0; ///< monotonic s
        bool toldUnreadable = false;
    };
    struct Item {
        std::weak_ptr<SampleStorages> samples;
        bool storedHistoryAsked = false;
    };

    FileState& stateOf(HistoryFile which) { return states_[static_cast<std::size_t>(which)]; }
    StorageClock& clock(StorageIndex index) { return clocks_[position(index)]; }
    const StorageClock& clock(StorageIndex index) const { return clocks_[position(index)]; }
    bool isOfItems() const { return traits().storageType == StorageType::Items; }
    template <typename Function>
    void forEachItem(Function function);
    template <typename Function>
    void forEachRunningStorage(Function function);

    void loadPreviousSamples(HistoryFile which);
    void adoptHistory(HistoryFile which, const StoredHistory& stored);
    void adoptStorage(StorageIndex index, const StoredStorage& stored);
    void loadHistoryOfNewItems();
    void loadPreviousSamplesForItem(const std::string& key, const std::shared_ptr<SampleStorages>& item);
    void runHistoryClocks(double now);
    bool believesWallClock(double now, double steady);
    bool isClockSynchronised() const;
    std::pair<StorageIndex, double> nextToFinish();
    void insertSampleWithIndex(StorageIndex index);
    bool itemsMeasured(StorageIndex index);

    Context& context_;
    HistoryTables tables_;
    SampleStorages own_;
    std::map<std::string, Item> items_; ///< by key
    std::vector<StorageClock> clocks_;
    std::array<FileState, historyFiles.size()> states_;
    double nextHistoryTime_ = 0; ///< when the next period ends, s since 1970
    bool isRecording_ = true;
    double nextFlush_ = 0;                                ///< monotonic s
    bool commits_ = true;                                 ///< by itself
    std::array<double, storageCount> measuredUntil_ = {}; ///< latest item sample that is not empty, s since 1970
    WallClockGuard wallClock_;
    Task beforeCommit_ = [] {};
    Lifetime lifetime_;
};

} // namespace meridal
