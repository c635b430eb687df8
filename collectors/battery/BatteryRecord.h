// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collectors/battery/BatteryLevel.h"
#include "history/HistoryCatalogue.h"
#include "history/HistoryRecorder.h"
#include "history/RecordedSeries.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace meridal {

class SampleStorages;
struct Context;

/// Charge (%) and power (W, negative while draining) of the batteries over time, as series "charge" and "power" of the
/// machine, and where it has several batteries "charge/KEY" and "power/KEY" of each. Holds what was read last, until it is
/// told otherwise. Main queue only.
class BatteryRecord {
public:
    explicit BatteryRecord(Context& context);

    /// Takes up what earlier runs recorded, if anything.
    void load();
    /// Whether anything is written.
    void setRecording(bool recording) { history_.setRecording(recording); }
    /// What the batteries are at from now on.
    void begin();
    void note(const std::string& key, const std::string& name, const BatteryLevel& level); ///< of no key: the machine
    /// Records that, and has it written; to be called every few seconds.
    void tick();
    void addTo(HistoryCatalogue& catalogue);

private:
    struct Held {
        HistorySeries series;
        std::optional<double> value;
        std::shared_ptr<SampleStorages> samples;
    };

    void hold(HistorySeries series, std::optional<double> value);

    Context& context_;
    HistoryRecorder history_;
    RecordedSeries recorded_;
    std::map<std::string, Held> held_; ///< by key of the series
};

} // namespace meridal
