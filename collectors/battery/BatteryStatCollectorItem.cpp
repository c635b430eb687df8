// SPDX-License-Identifier: Apache-2.0
#include "collectors/battery/BatteryStatCollectorItem.h"

#include "base/Runtime.h"
#include "platform/Context.h"

#include <algorithm>
#include <tuple>

namespace meridal {

void BatteryStatCollectorItem::setSource(BatterySource source)
{
    if (source == source_) {
        return;
    }
    source_ = source;
    sourceSlept_ = slept_;
    if (!externalSourceTime_) {
        sourceTime_ = context().runtime.wallTime();
        sourceMoment_ = context().runtime.monotonicTime();
    }
}

std::optional<double> BatteryStatCollectorItem::power() const
{
    constexpr double microwatts = 1e6; // mV times mA
    return voltage_ && amperage_ ? std::optional(*voltage_ * *amperage_ / microwatts) : std::nullopt;
}

std::optional<double> BatteryStatCollectorItem::awakeOnSource(double slept) const
{
    if (sourceTime_ <= 0) {
        return std::nullopt;
    }
    const double byWall = context().runtime.wallTime() - sourceTime_ - (slept - sourceSlept_);
    if (externalSourceTime_) {
        return std::max(0.0, byWall);
    }
    // A wall clock that was set forward does not make the time longer than the other one says.
    const double moment = context().runtime.monotonicTime() - sourceMoment_;
    return std::clamp(byWall, 0.0, std::max(0.0, moment));
}

Dictionary BatteryStatCollectorItem::describe(double slept) const
{
    Dictionary described{{"key", key().value_or("")}, {"name", name_}, {"type", static_cast<int>(type_)}};
    put(described, "percentage", percentage_);
    if (!level_.empty()) {
        described["level"] = level_;
    }
    described["state"] = static_cast<int>(state_);
    if (isPeripheral()) {
        return described;
    }
    described["time"] = time();
    described["source"] = static_cast<int>(source_);
    described["sourceTime"] = sourceTime_;
    put(described, "awakeOnSource", awakeOnSource(slept));
    put(described, "voltage", voltage_);
    put(described, "amperage", amperage_);
    put(described, "power", power());
    if (condition_) {
        described["condition"] = static_cast<int>(*condition_);
    }
    put(described, "cycles", cycles_);
    put(described, "health", health_);
    put(described, "manufactureTime", manufactureTime_);
    put(described, "designCapacity", designCapacity_);
    put(described, "maximumCapacity", maximumCapacity_);
    put(described, "currentCapacity", currentCapacity_);
    return described;
}

std::weak_ordering BatteryStatCollectorItem::sort(const StatCollectorItem& other) const
{
    const auto& that = dynamic_cast<const BatteryStatCollectorItem&>(other);
    const auto rank = [](const BatteryStatCollectorItem& item) {
        return std::make_tuple(std::min(static_cast<int>(item.type_), static_cast<int>(BatteryType::Keyboard)),
            std::cref(item.name_), item.key().value_or(""));
    };
    const auto mine = rank(*this);
    const auto theirs = rank(that);
    return mine < theirs ? std::weak_ordering::less
        : theirs < mine  ? std::weak_ordering::greater
                         : std::weak_ordering::equivalent;
}

} // namespace meridal
