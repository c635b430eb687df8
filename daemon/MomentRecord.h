// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collectors/applications/RecordedGroups.h"
#include "collectors/battery/BatteryHistory.h"
#include "collectors/network/BandwidthTotals.h"
#include "collectors/uptime/UptimeHistory.h"
#include "history/HistoryCatalogue.h"
#include "history/HistoryMoment.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace meridal {

/// A series of the catalogue.
struct MomentSeries {
    std::string collector; ///< the catalogue's name for it
    HistoryRecorder* recorder = nullptr;
    HistorySeries series;

    std::string name() const { return series.key.empty() ? collector : collector + "/" + series.key; }
};

/// Everything that the files have of a moment, gathered for one answer.
struct MomentRecord {
    double time = 0; ///< s since 1970
    double now = 0;
    bool isExact = false;                ///< who asks gets figures as they are recorded, and not in coarser steps
    std::optional<std::uint32_t> viewer; ///< the user whose applications alone were read; absent: all

    std::vector<MomentSeries> series;
    std::map<HistoryRecorder*, std::shared_ptr<const HistoryMoment>> figures; ///< null: could not be read
    std::optional<UptimeAnswer> boots;         ///< those that began before it or soon after, newest first, and sleeps
    std::optional<UptimeAnswer> laterBoots;    ///< those that ran then or later
    std::optional<BatteryAnswer> sources;      ///< changes of the power source up to a while after it, newest first
    std::optional<BandwidthAnswer> interfaces; ///< periods that had begun and may not have ended
    std::map<std::string, BandwidthAnswer> stations; ///< the same of each of them, by base station

    /// Of applications, in the period that the moment lies in, and the ones before and after. Absent: nothing keeps that.
    std::optional<RecordedMoment> earlier;
    std::optional<RecordedMoment> then;
    std::optional<RecordedMoment> later;
    bool keepsApplications = false;
};

} // namespace meridal
