#pragma once

#include "platform/host/PeripheralBatteries.h"
#include "platform/linux/RootFolder.h"
#include "platform/linux/SystemBus.h"

#include <filesystem>
#include <memory>
#include <vector>

struct sd_bus_message;
struct sd_bus_slot;

namespace meridal {

class PowerSupply;

/// Batteries of connected devices: supplies of scope "Device", and what BlueZ tells of devices whose battery the kernel
/// does not see (org.bluez.Battery1). BlueZ is asked anew each time and never started for it.
class LinuxPeripheralBatteries final : public PeripheralBatteries {
public:
    LinuxPeripheralBatteries(Runtime& runtime, const std::filesystem::path& root, std::shared_ptr<SystemBus> bus);
    ~LinuxPeripheralBatteries() override;
    LinuxPeripheralBatteries(const LinuxPeripheralBatteries&) = delete;
    LinuxPeripheralBatteries& operator=(const LinuxPeripheralBatteries&) = delete;

    void bluetooth(Reply reply) override;
    std::vector<PeripheralBattery> logitech() override;

    /// The battery of one supply.
    static PeripheralBattery batteryOf(const PowerSupply& supply);
    /// Those of BlueZ, and of the others those that BlueZ does not have.
    static std::vector<PeripheralBattery> merged(
        std::vector<PeripheralBattery> bluez, const std::vector<PeripheralBattery>& supplies);

    static constexpr double patience = 3; ///< s for BlueZ to answer

private:
    std::vector<PeripheralBattery> ofSupplies(bool logitech) const;
    bool ask();
    void answered(sd_bus_message* reply);
    void finish(std::vector<PeripheralBattery> bluez);

    Runtime& runtime_;
    RootFolder root_;
    std::shared_ptr<SystemBus> bus_;
    std::vector<Reply> waiting_;
    sd_bus_slot* call_ = nullptr;
    std::unique_ptr<Timer> timer_;
};

} // namespace meridal
