// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/power/LinuxPeripheralBatteries.h"

#include "base/Text.h"
#include "platform/PeripheralNames.h"
#include "platform/linux/power/BluezObjects.h"
#include "platform/linux/power/PowerSupplies.h"

#include <systemd/sd-bus.h>

#include <algorithm>
#include <string>
#include <utility>

namespace meridal {

namespace {

constexpr std::size_t addressLength = 17; // aa:bb:cc:dd:ee:ff

/// The hardware address that drivers put into the names of their supplies: "hid-aa:bb:cc:dd:ee:ff-battery".
std::optional<std::string> addressInside(std::string_view name)
{
    for (std::size_t at = 0; at + addressLength <= name.size(); ++at) {
        if (const auto address = hardwareAddress(name.substr(at, addressLength))) {
            return address;
        }
    }
    return std::nullopt;
}

bool isOfLogitech(const PowerSupply& supply) { return supply.name().starts_with("hidpp_battery"); }

} // namespace

LinuxPeripheralBatteries::LinuxPeripheralBatteries(
    Runtime& runtime, const std::filesystem::path& root, std::shared_ptr<SystemBus> bus)
    : runtime_(runtime), root_(root), bus_(std::move(bus)), queue_(runtime.makeSlowQueue("peripheral batteries"))
{
}

LinuxPeripheralBatteries::~LinuxPeripheralBatteries() { sd_bus_slot_unref(call_); }

PeripheralBattery LinuxPeripheralBatteries::batteryOf(const PowerSupply& supply)
{
    const std::string serial = supply.text("serial_number").value_or("");
    auto address = hardwareAddress(serial);
    if (!address) {
        address = addressInside(supply.name());
    }
    PeripheralBattery battery;
    battery.key = validUtf8(address ? *address : serial.empty() ? supply.name() : serial);
    battery.name = validUtf8(supply.text("model_name").value_or(supply.name()));
    battery.kind = kindOfName(battery.name);
    if (battery.kind == PeripheralKind::Other) {
        battery.kind = kindOfName(supply.name()); // "ps-controller-battery-..."
    }
    battery.percent = supply.percent();
    const auto level = supply.text("capacity_level");
    if (!battery.percent && level && level != "Unknown") {
        battery.level = validUtf8(*level);
    }
    if (supply.status() != "Unknown") {
        battery.charging = supply.status() == "Charging";
    }
    return battery;
}

std::vector<PeripheralBattery> LinuxPeripheralBatteries::merged(
    std::vector<PeripheralBattery> bluez, const std::vector<PeripheralBattery>& supplies)
{
    for (const PeripheralBattery& supply : supplies) {
        const auto same = std::find_if(
            bluez.begin(), bluez.end(), [&](const PeripheralBattery& each) { return each.key == supply.key; });
        if (same == bluez.end()) {
            bluez.push_back(supply);
        } else if (!same->charging) {
            same->charging = supply.charging; // which BlueZ does not tell
        }
    }
    return bluez;
}

std::vector<PeripheralBattery> LinuxPeripheralBatteries::logitech() { return supplies_.logitech; }

void LinuxPeripheralBatteries::bluetooth(Reply reply)
{
    waiting_.push_back(std::move(reply));
    if (timer_) {
        return; // the answers on their way are for this one too
    }
    bluez_.clear();
    // A device may hang, and a bus that goes away leaves the call without an answer.
    timer_ = runtime_.startTimer(runtime_.mainQueue(), {.first = patience}, [this] { finish(); });
    askSupplies();
    askBluez();
}

void LinuxPeripheralBatteries::finishWhenComplete()
{
    if (!reading_ && !call_) {
        finish();
    }
}

/// With what is known by now: of supplies that do not answer, what they said the last time.
void LinuxPeripheralBatteries::finish()
{
    timer_.reset();
    call_ = sd_bus_slot_unref(call_);
    const auto batteries = merged(std::exchange(bluez_, {}), supplies_.others);
    for (const Reply& reply : std::exchange(waiting_, {})) {
        reply(batteries);
    }
}

// Supplies

LinuxPeripheralBatteries::Supplies LinuxPeripheralBatteries::readSupplies(const RootFolder& root)
{
    Supplies found;
    for (const PowerSupply& supply : powerSupplies(root, SuppliesOf::Devices)) {
        if (supply.isPeripheralBattery()) {
            (isOfLogitech(supply) ? found.logitech : found.others).push_back(batteryOf(supply));
        }
    }
    return found;
}

void LinuxPeripheralBatteries::askSupplies()
{
    if (std::exchange(reading_, true)) {
        return; // one of them still hangs
    }
    auto found = std::make_shared<Supplies>();
    Task finished = lifetime_.guard([this, found] {
        reading_ = false;
        supplies_ = std::move(*found);
        if (timer_) {
            finishWhenComplete();
        }
    });
    // Holds what it needs, so that it may still hang when this object has gone.
    queue_->post([root = root_, found = std::move(found), finished = std::move(finished),
                     &main = runtime_.mainQueue()]() mutable {
        *found = readSupplies(root);
        found.reset();
        main.post(std::move(finished));
    });
}

// BlueZ

/// Asks BlueZ for its objects, where there is one.
void LinuxPeripheralBatteries::askBluez()
{
    if (!bus_->handle()) {
        return;
    }
    sd_bus_message* message = nullptr;
    int result = sd_bus_message_new_method_call(
        bus_->handle(), &message, "org.bluez", "/", "org.freedesktop.DBus.ObjectManager", "GetManagedObjects");
    if (result >= 0) {
        result = sd_bus_message_set_auto_start(message, 0); // who has no Bluetooth service running wants none
    }
    if (result >= 0) {
        sd_bus_call_async(
            bus_->handle(), &call_, message,
            [](sd_bus_message* reply, void* self, sd_bus_error*) {
                static_cast<LinuxPeripheralBatteries*>(self)->answered(reply);
                return 0;
            },
            this, 0);
    }
    sd_bus_message_unref(message);
    bus_->kick();
}

void LinuxPeripheralBatteries::answered(sd_bus_message* reply)
{
    const bool refused = sd_bus_message_is_method_error(reply, nullptr) > 0;
    bluez_ = refused ? Batteries() : batteriesOfBluez(*reply);
    call_ = sd_bus_slot_unref(call_);
    finishWhenComplete();
}

} // namespace meridal
