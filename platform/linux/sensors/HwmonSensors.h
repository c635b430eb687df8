#pragma once

#include "base/SlowWork.h"
#include "platform/host/Limitations.h"
#include "platform/host/SensorChannels.h"
#include "platform/linux/kernel/RootFolder.h"
#include "platform/linux/kernel/Uevents.h"
#include "platform/linux/sensors/HwmonChip.h"
#include "platform/linux/sensors/HwmonReader.h"
#include "platform/linux/sensors/SMCKeyTable.h"
#include "platform/linux/sensors/SensorsConfig.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace meridal {

class Runtime;

/// A channel of a chip under its key.
struct HwmonSensor {
    SensorChannelKind kind = SensorChannelKind::Temperature;
    std::string key;   ///< the SMC's; for a fan that of its speed ("F0Ac")
    std::string chip;  ///< lm-sensors' name for it
    std::string label; ///< for people
    std::optional<SensorsExpression> formula;
    bool isSMCs = false;                                          ///< a real SMC has that key
    bool disturbs = false;                                        ///< see SensorChannel
    std::size_t reader = 0;                                       ///< which chip's
    std::array<std::optional<std::size_t>, hwmonFileCount> files; ///< by HwmonFile, the reader's

    const std::optional<std::size_t>& file(HwmonFile what) const { return files[static_cast<std::size_t>(what)]; }
};

struct HwmonOptions {
    std::filesystem::path root = "/";
    std::filesystem::path keyFile = {};       ///< where keys are kept; empty keeps none
    double patience = 0.1;                    ///< s that a figure is waited for
    std::unique_ptr<SlowWork> work = nullptr; ///< where chips are read; threads of their own when null
};

/// All hwmon chips of this machine under SMC keys. Follows chips that come and go: by their announcements, and by a
/// look every few seconds while anybody asks. Main queue only.
///
/// Figures are read by chip on a thread aside and waited for: some drivers take a tenth of a second for a figure, and
/// one that hangs must not take the daemon with it. A chip that was waited for in vain answers what it said last, for as
/// long as that is worth something, and is not waited for again for a minute.
class HwmonSensors {
public:
    HwmonSensors(Runtime& runtime, HwmonOptions options, std::shared_ptr<Limitations> limitations);

    /// All channels that are not ignored, by chip. Valid until chips come or go, which only these two calls look for.
    const std::vector<HwmonSensor>& sensors();
    /// Changes with them.
    std::uint64_t generation();

    /// By the clock that cannot step, s.
    double now() const;

    /// In the unit of the kind: degrees Celsius, rpm, V, A, W, percent. Absent when it cannot be had now.
    std::optional<double> value(const HwmonSensor& sensor);
    /// One of a sensor's limits, in the same unit.
    std::optional<double> limit(const HwmonSensor& sensor, HwmonFile which);
    /// What the chips say is wrong, by key.
    std::map<std::string, SensorFlags> flags();

private:
    /// A chip, what reads it, and until when it is not waited for.
    struct Source {
        HwmonChip chip;
        std::shared_ptr<HwmonReader> reader;
        double notWaitedUntil = 0;
    };

    void look();
    void rebuild();
    void addSensors(const HwmonChip& chip, const SensorsConfig& config, std::size_t reader,
        const std::set<std::string, std::less<>>& identities);
    SensorFlags flagsOf(const HwmonSensor& sensor);
    std::optional<double> figure(const HwmonSensor& sensor, HwmonFile which, double goodFor);
    void startReadings(double now);

    Runtime& runtime_;
    RootFolder root_;
    double patience_;
    std::unique_ptr<SlowWork> work_;
    std::shared_ptr<Limitations> limitations_;
    SMCKeyTable keys_;
    std::vector<Source> sources_;
    std::vector<HwmonSensor> sensors_;
    std::set<std::string> usedKeys_;
    std::map<std::string, std::string> entries_;
    std::uint64_t generation_ = 0;
    bool announced_ = true; ///< chips came or went, or nobody has looked yet
    double nextLook_ = 0;
    std::unique_ptr<Uevents> uevents_;
};

} // namespace meridal
