// SPDX-License-Identifier: Apache-2.0
#include "platform/formats/FollowedPowerSources.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace meridal {

namespace {

/// Also when an observer throws: a reading that stayed for good would be every later one.
class Telling {
public:
    explicit Telling(bool& flag) : flag_(flag), before_(std::exchange(flag, true)) { }
    ~Telling() { flag_ = before_; }
    Telling(const Telling&) = delete;
    Telling& operator=(const Telling&) = delete;

private:
    bool& flag_;
    const bool before_;
};

bool isBusyness(std::string_view key) { return key.starts_with("State:/IOKit/PowerManagement/SystemLoad"); }

} // namespace

std::vector<PowerSourceRecord> FollowedPowerSources::sources()
{
    if (!isTelling_) {
        return read_();
    }
    if (!hasReading_) {
        reading_ = read_();
        hasReading_ = true; // once it has not thrown
    }
    return reading_;
}

std::unique_ptr<PowerSources::Observation> FollowedPowerSources::observe(std::function<void()> changed)
{
    return observers_.add(std::move(changed));
}

void FollowedPowerSources::changed(std::span<const std::string> keys)
{
    if (keys.empty() || !std::all_of(keys.begin(), keys.end(), isBusyness)) {
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
    const Telling telling(isTelling_);
    hasReading_ = false;
    observers_.tell();
}

} // namespace meridal
