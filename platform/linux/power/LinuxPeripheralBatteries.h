// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Lifetime.h"
#include "base/Runtime.h"
#include "platform/host/PeripheralBatteries.h"
#include "platform/linux/kernel/RootFolder.h"
#include "platform/linux/kernel/SystemBus.h"

#include <filesystem>
#include <memory>
#include <vector>

struct sd_bus_message;
struct sd_bus_slot;

namespace meridal {

class PowerSupply;

/// Batteries of connected devices: supplies of scope "Device", and what BlueZ tells of devices whose battery the kernel
/// does not see (org.bluez.Battery1). BlueZ is asked anew each time and never started for it. The supplies are read where
/// a device that does not answer, which takes seconds, holds up nobody.
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

    static constexpr double patience = 3; ///< s for all of them to answer

private:
    using Batteries = std::vector<PeripheralBattery>;
    /// Of the supplies, by where their devices are.
    struct Supplies {
        Batteries logitech;
        Batteries others;
    };

    static Supplies readSupplies(const RootFolder& root);
    void askSupplies();
    void askBluez();
    void answered(sd_bus_message* reply);
    void finishWhenComplete();
    void finish();

    Runtime& runtime_;
    RootFolder root_;
    std::shared_ptr<SystemBus> bus_;
    std::shared_ptr<Queue> queue_;
    std::vector<Reply> waiting_;
    bool reading_ = false; ///< the supplies
    Supplies supplies_;    ///< as they were last read
    Batteries bluez_;      ///< this time's answer
    sd_bus_slot* call_ = nullptr;
    std::unique_ptr<Timer> timer_;
    Lifetime lifetime_;
};

} // namespace meridal
