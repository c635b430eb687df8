// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collectors/StatCollector.h"
#include "collectors/StatCollectorItem.h"
#include "tests/support/FakeHost.h"

#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace meridal::test {

/// A collector that writes down what the base asks of it.
class RecordingCollector final : public StatCollector {
public:
    explicit RecordingCollector(FakeMachine& machine) : StatCollector(machine.context), machine_(machine)
    {
        config()["xmlNoSamples"] = true;
    }

    using StatCollector::mutableItems;

    void updateStatsForSequence(std::int64_t sequence) override
    {
        turns.emplace_back(machine_.runtime.wallTime(), sequence);
        if (during) {
            during();
        }
    }
    void updateHistory() override { ++historyTurns; }
    bool threadedUpdating() const override { return threaded; }
    std::shared_ptr<StatCollectorItem> makeItem() override { return std::make_shared<StatCollectorItem>(context()); }

    std::vector<std::pair<double, std::int64_t>> turns; ///< wall time and sequence
    std::function<void()> during;                       ///< runs inside each measurement
    int historyTurns = 0;
    bool threaded = false;

private:
    FakeMachine& machine_;
};

} // namespace meridal::test
