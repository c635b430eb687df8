// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Lifetime.h"
#include "collectors/StatCollector.h"
#include "collectors/battery/BatteryHistory.h"
#include "collectors/battery/BatterySleeps.h"
#include "collectors/battery/BatteryStatCollectorItem.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace meridal {

class HistoryDatabaseItem;

/// The batteries of this machine and of what is connected to it. It has no sample series: what it keeps is when the
/// cycle count, the health and the source of a battery changed, in three tables of its own.
class BatteryStatCollector : public StatCollector {
public:
    explicit BatteryStatCollector(Context& context);

    /// Makes sure of the tables. Waits for nothing.
    void prepareDatabase();
    /// Switched off, nothing is recorded and no file made; what there is can be read.
    void setRecording(bool recording);
    const std::string& dbpath() const { return dbpath_; } ///< the file that it keeps

    /// Reads a page of the history; the answer comes on the main queue, nothing when the file cannot be read.
    void readHistory(const BatteryQuestion& question, std::function<void(std::optional<BatteryAnswer>)> reply);

    /// Keeps what a sleep has cost.
    void saveSleep(const BatterySleep& sleep);
    /// The same as readHistory() for sleeps.
    void readSleeps(const BatterySleepQuestion& question, std::function<void(std::optional<BatterySleepAnswer>)> reply);

protected:
    /// Records what differs from what the files hold, of all power sources. What they hold is asked for first, and
    /// what changes until that is known is recorded then.
    void recordChanges();

private:
    using ItemPointer = std::shared_ptr<BatteryStatCollectorItem>;
    std::shared_ptr<HistoryDatabaseItem> database() const;
    template <typename Question, typename Answer>
    void readPage(const Question& question, std::optional<Answer> (*read)(SQLiteConnection&, const Question&),
        std::function<void(std::optional<Answer>)> reply);
    void loadRecorded(const ItemPointer& item);
    void takeRecorded(BatteryStatCollectorItem& item, const std::optional<BatteryStatCollectorItem::Recorded>& found);
    void writeChanges(BatteryStatCollectorItem& item);

    const std::string dbpath_;
    bool isRecording_ = true;
    bool preparedDatabase_ = false;
    Lifetime lifetime_;
};

} // namespace meridal
