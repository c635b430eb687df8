// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/SlowWork.h"
#include "platform/host/SensorSource.h"
#include "platform/linux/kernel/RootFolder.h"
#include "platform/linux/kernel/Uevents.h"
#include "platform/linux/sensors/HwmonChip.h"
#include "platform/linux/sensors/HwmonReader.h"
#include "platform/linux/sensors/SensorsConfig.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace meridal {

class Runtime;

struct HwmonOptions {
    std::filesystem::path root = "/";
    std::unique_ptr<SlowWork> work = nullptr; ///< where chips are read; threads of their own when null
};

/// All hwmon channels of this machine. A key is the device's path, the driver and the channel; with a driver for a real
/// SMC it is that SMC's. Follows chips that come and go: by their announcements, and by a look every few seconds while
/// anybody asks. Main queue only.
///
/// Figures are read by chip on a thread aside and waited for: some drivers take a tenth of a second for a figure, and
/// one that hangs must not take the daemon with it. A chip that was waited for in vain answers what it said last, for as
/// long as that is worth something, and is not waited for again for a minute.
class HwmonSensors final : public SensorSource {
public:
    HwmonSensors(Runtime& runtime, HwmonOptions options);

    std::uint64_t generation() override;
    std::vector<SensorRecord> sensors() override;
    std::vector<SensorReading> read(std::span<const std::string> keys) override;
    std::map<std::string, SensorFlags> flags() override;

private:
    /// A chip, what reads it, and until when it is not waited for.
    struct Source {
        HwmonChip chip;
        std::shared_ptr<HwmonReader> reader;
        double notWaitedUntil = 0;
    };
    struct Sensor {
        SensorRecord record;
        std::optional<SensorsExpression> formula;
        std::size_t source = 0;                                       ///< which chip's
        std::array<std::optional<std::size_t>, hwmonFileCount> files; ///< by HwmonFile, the reader's

        const std::optional<std::size_t>& file(HwmonFile what) const { return files[static_cast<std::size_t>(what)]; }
        double goodFor(HwmonFile what) const; ///< s
    };

    void look();
    void rebuild();
    void addSensors(const HwmonChip& chip, const SensorsConfig& config, std::size_t source);
    bool readLimits();
    SensorLimits limitsOf(const Sensor& sensor);
    SensorFlags flagsOf(const Sensor& sensor);
    void want(const Sensor& sensor, HwmonFile which);
    std::optional<double> figure(const Sensor& sensor, HwmonFile which);
    std::string failureOf(const Sensor& sensor) const;
    void startReadings(double now);

    Runtime& runtime_;
    RootFolder root_;
    std::unique_ptr<SlowWork> work_;
    std::vector<Source> sources_;
    std::vector<Sensor> sensors_;
    std::unordered_map<std::string, std::size_t> byKey_;
    std::map<std::string, std::string> entries_;
    std::uint64_t generation_ = 0;
    bool announced_ = true; ///< chips came or went, or nobody has looked yet
    double nextLook_ = 0;
    /// When to look whether limits that a chip did not tell have come, monotonic s; never when it told all that it has.
    double limitsAgainAt_ = std::numeric_limits<double>::infinity();
    std::unique_ptr<Uevents> uevents_;
};

} // namespace meridal
