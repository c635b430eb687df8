#pragma once

#include "platform/host/SMCService.h"
#include "platform/linux/sensors/HwmonSensors.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

namespace meridal {

/// An SMC made of the machine's hwmon chips. Temperatures, voltages, currents, powers, humidities and fan speeds are keys of type
/// "flt ", as the newest SMCs have them; a figure that cannot be had is not a number. FNum is one more than the highest
/// number of a fan, F%XMn and F%XMx its limits (0 where the chip has none), F%XID its description, a "{fds" with the
/// name in its last 12 bytes. #KEY counts them all. Nothing can be written. Main queue only.
class HwmonSMCService final : public SMCService {
public:
    explicit HwmonSMCService(std::shared_ptr<HwmonSensors> sensors);

    Handle findService(std::string_view serviceClass) override;
    void releaseService(Handle) override { }
    IOStatus openService(Handle service, std::uint32_t type, Handle& connection) override;
    IOStatus closeService(Handle connection) override;
    IOStatus callScalarMethod(Handle connection, std::uint32_t selector) override;
    IOStatus callStructMethod(
        Handle connection, std::uint32_t selector, const SMCParamRecord& input, SMCParamRecord& output) override;
    std::uint64_t keyGeneration() override { return sensors_->generation(); }

private:
    using Bytes = std::array<std::uint8_t, 32>;
    struct Key {
        std::uint32_t type = 0;
        std::uint32_t size = 0;
        std::function<SMCResult(Bytes&)> read;
    };

    void refresh();
    void add(const std::string& key, const char* type, std::uint32_t size, std::function<SMCResult(Bytes&)> read);
    void addFloat(const std::string& key, std::function<std::optional<double>()> figure);
    void addFan(const HwmonSensor& fan);
    SMCResult answer(const SMCParamRecord& input, SMCParamRecord& output);
    SMCResult answerKeyAtIndex(std::uint32_t index, SMCParamRecord& output) const;

    std::shared_ptr<HwmonSensors> sensors_;
    std::uint64_t generation_ = 0;
    std::unordered_map<std::uint32_t, Key> keys_;
    std::vector<std::uint32_t> order_; ///< ascending
    std::set<Handle> connections_;
    Handle lastConnection_ = 0;
};

} // namespace meridal
