// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Lifetime.h"
#include "base/Observers.h"
#include "base/Runtime.h"
#include "platform/host/PowerSources.h"

#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace meridal {

/// Power sources of which the dynamic store says when they have changed. One change is told to all who follow them, and they
/// share one reading of it. What only says how busy the machine and its user are comes with every touch of the keyboard
/// after a pause: that is told once in `busyInterval` at most. Main queue only.
class FollowedPowerSources final : public PowerSources {
public:
    using Read = std::function<std::vector<PowerSourceRecord>()>;

    static constexpr double busyInterval = 10; ///< s

    /// The runtime must outlive it.
    FollowedPowerSources(Runtime& runtime, Read read) : runtime_(runtime), read_(std::move(read)) { }

    std::vector<PowerSourceRecord> sources() override;
    std::unique_ptr<Observation> observe(std::function<void()> changed) override;

    /// These keys of the store have changed; without any, all that was known of it is to be forgotten.
    void changed(std::span<const std::string> keys);

private:
    void tell();

    Runtime& runtime_;
    Read read_;
    Observers<Observation> observers_;
    bool isTelling_ = false;
    bool isDue_ = false;                     ///< a change that is told later
    std::vector<PowerSourceRecord> reading_; ///< of the change that is being told, once somebody has asked for it
    bool hasReading_ = false;
    Lifetime lifetime_;
};

} // namespace meridal
