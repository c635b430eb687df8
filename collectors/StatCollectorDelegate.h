// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>

namespace meridal {

class StatCollector;
class StatCollectorItem;

/// Somebody who wants to know what a collector does. Called on the main queue. The collector does not own it: whoever
/// adds a delegate removes it before it goes.
class StatCollectorDelegate {
public:
    virtual ~StatCollectorDelegate() = default;

    /// Whether the collector shall measure on this turn of its clock; absent = leaves that to the other delegates.
    virtual std::optional<bool> collectorShouldUpdateStateForSequence(StatCollector& collector, std::int64_t sequence)
    {
        static_cast<void>(collector);
        static_cast<void>(sequence);
        return std::nullopt;
    }
    /// A measurement is finished. The base collector uses mode 0 only.
    virtual void collectorUpdatedForMode(StatCollector& collector, int mode)
    {
        static_cast<void>(collector);
        static_cast<void>(mode);
    }
    /// Items came or went.
    virtual void collectorChildrenChanged(StatCollector& collector) { static_cast<void>(collector); }
    virtual void collectorLoadedValueForItem(StatCollector& collector, StatCollectorItem& item)
    {
        static_cast<void>(collector);
        static_cast<void>(item);
    }
};

} // namespace meridal
