// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collectors/StatCollector.h"
#include "history/HistoryRecorder.h"

#include <memory>
#include <string_view>

namespace meridal {

class SensorStatCollectorItem;

/// Sensors and their recorded history, wherever the readings come from. One item a sensor, one value a sample.
class SensorsStatCollector : public StatCollector {
public:
    explicit SensorsStatCollector(Context& context);

    static constexpr const char* databaseName = "sensors.db";

    std::shared_ptr<StatCollectorItem> makeItem() override;
    void updateHistory() override { history_.updateHistory(); }
    HistoryRecorder& history() { return history_; }
    /// The sensor of that key, or null.
    std::shared_ptr<SensorStatCollectorItem> sensorWithKey(std::string_view key);

private:
    HistoryRecorder history_;
};

} // namespace meridal
