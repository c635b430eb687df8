// SPDX-License-Identifier: Apache-2.0
#include "platform/formats/FollowedPowerSources.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace meridal {

namespace {

bool isBusyness(std::string_view key) { return key.starts_with("State:/IOKit/PowerManagement/SystemLoad"); }

} // namespace

std::vector<PowerSourceRecord> FollowedPowerSources::sources()
{
    if (!isTelling_) {
        return read_();
    }
    if (!std::exchange(hasReading_, true)) {
        reading_ = read_();
    }
    return reading_;
}

std::unique_ptr<PowerSources::Observation> FollowedPowerSources::observe(std::function<void()> changed)
{
    return observers_.add(std::move(changed));
}

void FollowedPowerSources::changed(std::span<const std::string> keys)
{
    if (!std::all_of(keys.begin(), keys.end(), isBusyness)) {
        tell();
    } else if (!std::exchange(isDue_, true)) {
        runtime_.after(busyInterval, lifetime_.guard([this] {
            if (std::exchange(isDue_, false)) {
                tell();
            }
        }));
    }
}

void FollowedPowerSources::tell()
{
    isTelling_ = true;
    hasReading_ = false;
    observers_.tell();
    isTelling_ = false;
}

} // namespace meridal
