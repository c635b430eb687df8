// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/formats/SMCDataTypes.h"
#include "platform/formats/SensorsARMController.h"
#include "platform/host/SensorSource.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace meridal {

/// The sensors of a Mac: the services of the HID event system and averages over them, else the keys of the SMC that look
/// like sensors; with services, those of its keys that are known to tell what services do not; and the SMC's fans. Any key of
/// the SMC can be read by its four characters. Main queue only.
class MacSensorSource final : public SensorSource {
public:
    MacSensorSource(std::unique_ptr<SMCService> driver, std::unique_ptr<SensorServices> services, SMCOrigin origin);
    ~MacSensorSource() override;

    std::uint64_t generation() override;
    std::vector<SensorRecord> sensors() override;
    std::vector<SensorReading> read(std::span<const std::string> keys) override;
    /// Nothing: neither tells.
    std::map<std::string, SensorFlags> flags() override { return {}; }

private:
    void look(const std::vector<ARMSensor>& services);
    void openSMC();
    void lookAtSMC();
    bool addKeys();
    bool addFans();
    bool addFan(std::size_t number);
    std::optional<std::string> fanNameFromID(const std::string& prefix);
    SensorReading readKey(const std::string& key);

    std::unique_ptr<SMCService> driver_;
    std::unique_ptr<SensorServices> services_;
    const SMCOrigin origin_;
    SensorSMCController smc_;
    SensorsARMController arm_;
    std::vector<SensorRecord> records_;  ///< empty: nothing has been found so far
    int triesLeft_ = 0;                  ///< to open an SMC that is there
    int lateLooks_ = 0;                  ///< at services that did not answer
    int smcLooks_ = 0;                   ///< so far
    bool hasLookedAtSMC_ = false;        ///< and knows what it has
    std::optional<bool> searchedAlone_;  ///< how the keys to look at were found; absent: not to the last
    std::vector<std::string> undecided_; ///< the keys of which it has not said what they are
    std::uint64_t generation_ = 0;
};

} // namespace meridal
