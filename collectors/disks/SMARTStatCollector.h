// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Lifetime.h"
#include "base/Runtime.h"
#include "base/Value.h"
#include "collectors/StatCollector.h"
#include "collectors/disks/SMARTStatCollectorItem.h"
#include "history/HistoryRecorder.h"
#include "history/RecordedSeries.h"
#include "platform/host/Disks.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace meridal {

/// Every disk that has health data, ATA and NVMe, with its figures. Main queue only: a disk is read on a queue of its
/// own, where one that hangs holds up nobody: while somebody wants to know every 30 s (ATA every 300 s), and for the
/// record alone every 300 s (ATA every 1800 s).
class SMARTStatCollector final : public StatCollector {
public:
    explicit SMARTStatCollector(Context& context);
    ~SMARTStatCollector() override;

    /// The process-wide instance, on Context::shared(). Made anew after cleanupShared().
    static SMARTStatCollector& sharedSMARTCollector();
    static void cleanupShared();

    void setLoadAllAttributes(bool all) { loadAllAttributes_ = all; }
    /// Whether somebody asks for disks now.
    void setWanted(std::function<bool()> wanted) { wanted_ = std::move(wanted); }
    bool isWanted() const { return wanted_ && wanted_(); }
    /// Goes on with the record of earlier runs, and from a minute after this on keeps it whether somebody asks or not.
    void keepRecord();
    /// Switched off, disks are read for who asks and nothing is recorded; what earlier runs recorded can be read.
    void setRecording(bool recording);

    /// Looks for disks, and has those read that are new.
    void loadDisks();
    /// Looks for disks without talking to any.
    void discoverDisks();
    /// A disk came or went: looks again, at once if somebody asks for disks, else when somebody does.
    void disksChanged();
    void updateStats() override { updateStats({}); }
    /// Reads the disks whose turn it is. `done` runs on the main queue when all have answered, or after a while without
    /// those that have not: their figures come when they come.
    void updateStats(Task done);
    /// For who asks in between, however often: the same where disks are new or the last readings are as old as clients
    /// are used to; else `done` runs when the readings under way have ended, or at once.
    void updateStatsIfDue(Task done);

    std::vector<std::shared_ptr<SMARTStatCollectorItem>> disks() const;
    /// What clients get of key 32: an object for each disk that has a model and a temperature.
    Value diskTemperatures() const;
    /// What clients get of key 64.
    Value diskStatus() const;
    std::optional<Dictionary> overview() override;

    /// What history is offered: of the disks that there are as far as they have it, and of those that are away. Looks for
    /// disks where that is due, without talking to any.
    std::vector<HistorySeries> temperatureSeries();
    std::vector<HistorySeries> wearSeries();
    RecordedSeries& recordedTemperatures() { return recordedTemperatures_; }
    RecordedSeries& recordedWear() { return recordedWear_; }
    HistoryRecorder& history() { return history_; }

    bool shouldUpdateStateForSequence(std::int64_t sequence) override;
    double updateFrequencyForVersion(std::int64_t protocolVersion) const override;
    std::shared_ptr<StatCollectorItem> makeItem() override;
    /// The clock's turn: notes the figures of the latest readings for history.
    void updateHistory() override;
    /// Measuring has its own rhythm, the daemon's.
    void updateStatsForSequence(std::int64_t sequence) override;

    /// How long updateStats() waits for disks, in seconds.
    static constexpr double patience = 3;
    /// When the record's first reading comes, and how far the others are apart at least, in seconds.
    static constexpr double firstRecord = 60;
    static constexpr double recordInterval = 300;

    // Of the interface, and called by nothing here
    bool needToReload() const { return needToReload_; }
    void setNeedToReload(bool needed) { needToReload_ = needed; }
    bool loadAllAttributes() const { return loadAllAttributes_; }
    std::shared_ptr<SMARTStatCollectorItem> itemWithBSD(std::string_view bsd) const;

private:
    struct Round;
    using ItemPointer = std::shared_ptr<SMARTStatCollectorItem>;

    bool isUpdateDue() const;
    ItemPointer diskAt(const DiskRecord& disk, const std::string& serial) const;
    ItemPointer freeItem(const std::string& serial);
    void adoptDisk(const DiskRecord& disk, const std::string& serial);
    using Ask = std::function<std::optional<SMARTRequest>(SMARTStatCollectorItem&)>;
    void beginRound(Task done, const Ask& ask);
    void answered(Round& round);
    void startReading(const std::shared_ptr<SMARTStatCollectorItem>& item, const SMARTRequest& request,
        const std::shared_ptr<Round>& round);
    void finishReading(
        const std::shared_ptr<SMARTStatCollectorItem>& item, const SMARTDevice* device, const SMARTReading& reading);
    void finish(Round& round);
    void notifyDelegates();
    void readForRecord();
    void startRecording();
    void noteSeries(const SMARTStatCollectorItem& disk);
    std::vector<HistorySeries> offered(
        const RecordedSeries& recorded, const char* unit, bool (*has)(const SMARTStatCollectorItem&));

    HistoryRecorder history_;
    std::function<bool()> wanted_;
    std::unique_ptr<Disks::Observation> observation_;
    std::weak_ptr<Round> round_;      ///< the latest
    std::optional<double> lastRound_; ///< when it began, s of the clock that cannot step
    bool needToReload_ = true;
    bool loadAllAttributes_ = false;
    bool recording_ = false;
    bool isAskedToKeep_ = false;
    bool keepsRecord_ = false;
    Lifetime keeping_; ///< of the rhythm of the record
    RecordedSeries recordedTemperatures_;
    RecordedSeries recordedWear_;
    Lifetime lifetime_;
};

} // namespace meridal
