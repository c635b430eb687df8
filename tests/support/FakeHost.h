// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Log.h"
#include "base/NotificationCenter.h"
#include "base/Observers.h"
#include "platform/Context.h"
#include "platform/host/Host.h"
#include "tests/support/FakeCapture.h"
#include "tests/support/FakeDisks.h"
#include "tests/support/FakeMachineCounters.h"
#include "tests/support/FakeProcesses.h"
#include "tests/support/FakeSensors.h"
#include "tests/support/TemporaryTree.h"
#include "tests/support/VirtualRuntime.h"

#include <algorithm>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace meridal::test {

class FakeMachineInfo final : public MachineInfo {
public:
    std::optional<std::string> modelIdentifier() const override { return model; }
    std::optional<std::string> serialNumber() const override { return serial; }
    std::optional<std::string> vendorName() const override { return "Fake Inc."; }
    std::optional<std::string> firmwareVersion() const override { return "F1"; }
    std::optional<double> maximumHertz() const override { return 3e9; }
    std::optional<int> processorPackages() const override { return 1; }
    std::string kernelRelease() const override { return "1.2.3"; }
    std::string architecture() const override { return "x86_64"; }
    std::string hostName() const override { return "fake"; }
    std::optional<std::string> virtualisation() const override { return virtualMachine; }
    std::optional<std::string> boardIdentifier() const override { return board; }
    std::optional<std::string> processorName() const override { return "Fake CPU"; }
    std::optional<double> processorHertz() const override { return 2e9; }
    int logicalProcessors() const override { return 8; }
    int physicalProcessors() const override { return 4; }
    std::optional<double> memoryBytes() const override { return 16e9; }
    std::optional<std::string> networkHardwareAddress() const override { return "02:00:00:00:00:01"; }
    SystemRelease systemRelease() const override { return release; }
    std::string systemName() const override { return "Fake OS"; }
    std::optional<double> bootTime() const override { return boot; }
    std::optional<std::string> bootIdentifier() const override { return bootId; }
    bool hasService(std::string_view serviceClass) const override { return service == serviceClass; }
    std::optional<bool> chassisIsPortable() const override { return portable; }
    std::string serviceManagerName() const override { return "launchd"; }

    std::optional<std::string> model = "MacBookPro18,3";
    std::optional<std::string> serial = "C02ABCDEFGHJ";
    std::optional<std::string> board;
    std::optional<std::string> virtualMachine;
    SystemRelease release = {14, 0, 0};
    std::optional<double> boot = 1'699'990'000.0;
    std::optional<std::string> bootId = "first boot";
    std::string service;
    std::optional<bool> portable;
};

class FakeDisplayInfo final : public DisplayInfo {
public:
    std::optional<double> frameRate() override { return rate; }
    std::optional<double> rate;
};

class FakeDistributedNotifications final : public DistributedNotifications {
public:
    void post(const std::string& name) override { posted.push_back(name); }
    std::unique_ptr<Observation> observe(const std::string& name, std::function<void()> handler) override
    {
        handlers.emplace(name, std::move(handler));
        return std::make_unique<Observation>();
    }
    std::vector<std::string> posted;
    std::multimap<std::string, std::function<void()>> handlers;
};

class FakeSelfUsage final : public SelfUsage {
public:
    SelfUsageReading read() override { return reading; }
    SelfCost readCost() override { return reading; }
    SelfUsageReading reading;
};

class FakeUserRights final : public UserRights {
public:
    bool administers(std::uint32_t uid) override { return uid == administrator; }
    bool ownsActiveSeat(std::uint32_t uid) override { return uid == seated; }
    std::string userName(std::uint32_t uid) override
    {
        const auto name = names.find(uid);
        return name == names.end() ? std::string() : name->second;
    }
    Result<void> shareWithReaders(const std::string&) override { return {}; }
    std::uint32_t administrator = 0;
    std::uint32_t seated = 1000;
    std::map<std::uint32_t, std::string> names;
};

/// A system that sleeps and wakes as a test tells it, and writes down what it was allowed.
class FakePowerMessages final : public PowerMessages {
public:
    std::unique_ptr<Registration> receive(Handler receiver) override
    {
        handler = std::move(receiver);
        return std::make_unique<Ending>(*this);
    }
    void allow(Token token) override { allowed.push_back(token); }
    /// Sends a message with a token of its own, which is answered.
    Token send(PowerMessage message)
    {
        const Token token = ++lastToken;
        if (handler) {
            handler(message, token);
        }
        return token;
    }

    Handler handler; ///< none while nobody is registered
    std::vector<Token> allowed;
    Token lastToken = 0;

private:
    struct Ending final : Registration {
        explicit Ending(FakePowerMessages& owner) : messages(owner) { }
        ~Ending() override { messages.handler = nullptr; }
        FakePowerMessages& messages;
    };
};

/// Power sources that a test describes.
class FakePowerSources final : public PowerSources {
public:
    std::vector<PowerSourceRecord> sources() override
    {
        ++asked;
        return records;
    }
    std::unique_ptr<Observation> observe(std::function<void()> changed) override
    {
        return observers.add(std::move(changed));
    }
    /// Replaces the records and tells the observers.
    void change(std::vector<PowerSourceRecord> now)
    {
        records = std::move(now);
        observers.tell();
    }

    std::vector<PowerSourceRecord> records;
    int asked = 0;
    Observers<Observation> observers;
};

/// Mice, keyboards and headsets that a test describes. Bluetooth answers when the test says so, or at once.
class FakePeripheralBatteries final : public PeripheralBatteries {
public:
    void bluetooth(Reply reply) override
    {
        ++asked;
        if (slow) {
            waiting.push_back(std::move(reply));
        } else {
            reply(wireless);
        }
    }
    std::vector<PeripheralBattery> logitech() override { return receiver; }
    /// Answers everybody who waits.
    void answer()
    {
        for (const Reply& reply : std::exchange(waiting, {})) {
            reply(wireless);
        }
    }

    std::vector<PeripheralBattery> wireless;
    std::vector<PeripheralBattery> receiver;
    std::vector<Reply> waiting;
    bool slow = false;
    int asked = 0;
};

/// Interfaces that a test plugs in, renames and lets carry traffic.
class FakeNetworkInterfaces final : public NetworkInterfaces {
public:
    const NetworkReading* read() override
    {
        ++reads;
        last = unreadable ? std::nullopt : std::optional(now);
        return latest();
    }
    const NetworkReading* latest() const override { return last ? &*last : nullptr; }
    /// The interface of that name, made with the next index when it is not there.
    InterfaceRecord& interface(const std::string& name)
    {
        for (InterfaceRecord& record : now.interfaces) {
            if (record.name == name) {
                return record;
            }
        }
        InterfaceRecord& record = now.interfaces.emplace_back();
        record.index = ++lastIndex;
        record.name = name;
        record.kind = InterfaceKind::Ethernet;
        record.link = LinkState::Up;
        record.enabled = true;
        record.hasCounters = true;
        return record;
    }
    void remove(const std::string& name)
    {
        std::erase_if(now.interfaces, [&](const auto& record) { return record.name == name; });
    }
    void transfer(const std::string& name, std::uint64_t sent, std::uint64_t received)
    {
        interface(name).bytesSent += sent;
        interface(name).bytesReceived += received;
    }

    NetworkReading now;
    std::optional<NetworkReading> last;
    std::int32_t lastIndex = 0;
    bool unreadable = false;
    int reads = 0;
};

class FakeWirelessInterface final : public WirelessInterface {
public:
    std::optional<WirelessIdentity> identity(const std::string& interfaceName) override
    {
        const auto entry = joined.find(interfaceName);
        return entry == joined.end() ? std::nullopt : std::optional(entry->second);
    }
    Result<void> togglePower() override
    {
        powered = !powered;
        return {};
    }
    std::map<std::string, WirelessIdentity> joined; ///< by interface
    bool powered = true;
};

class FakeNetworkConfiguration final : public NetworkConfiguration {
public:
    Result<void> refreshLease(const std::string& interfaceName) override
    {
        refreshed.push_back(interfaceName);
        return {};
    }
    Result<void> setNetworkSet(const std::string& identifier) override
    {
        sets.push_back(identifier);
        return {};
    }
    std::vector<std::string> refreshed;
    std::vector<std::string> sets;
};

class FakeClockSource final : public ClockSource {
public:
    bool isSynchronised() override { return synchronised; }
    bool synchronised = false;
};

/// A whole machine under a test's thumb: virtual time, fake seams, files in a folder that goes with it.
struct FakeMachine {
    FakeMachine()
    {
        host.processes = std::make_unique<FakeProcessSource>();
        host.processVisibility = std::make_unique<FakeProcessVisibility>();
        host.machine = std::make_unique<FakeMachineInfo>();
        host.clockSource = std::make_unique<FakeClockSource>();
        host.machineCounters = std::make_unique<FakeMachineCounters>();
        host.graphics = std::make_unique<FakeGraphicsUnits>();
        host.fileSystems = std::make_unique<FakeFileSystems>();
        host.display = std::make_unique<FakeDisplayInfo>();
        host.distributedNotifications = std::make_unique<FakeDistributedNotifications>();
        host.selfUsage = std::make_unique<FakeSelfUsage>();
        host.userRights = std::make_unique<FakeUserRights>();
        host.powerMessages = std::make_unique<FakePowerMessages>();
        host.powerSources = std::make_unique<FakePowerSources>();
        host.disks = std::make_unique<FakeDisks>();
        host.sensors = std::make_unique<FakeSensorSource>();
        host.peripherals = std::make_unique<FakePeripheralBatteries>();
        host.packetTap = std::make_unique<FakePacketTap>();
        host.networkStatistics = std::make_unique<FakeNetworkStatistics>();
        host.trafficCounters = std::make_unique<FakeTrafficCounters>();
        host.processConnections = std::make_unique<FakeProcessConnections>();
        host.networkInterfaces = std::make_unique<FakeNetworkInterfaces>();
        host.wireless = std::make_unique<FakeWirelessInterface>();
        host.networkConfiguration = std::make_unique<FakeNetworkConfiguration>();
    }

    FakeProcessSource& processes() { return static_cast<FakeProcessSource&>(*host.processes); }
    FakeProcessVisibility& visibility() { return static_cast<FakeProcessVisibility&>(*host.processVisibility); }
    FakeMachineCounters& counters() { return static_cast<FakeMachineCounters&>(*host.machineCounters); }
    FakeGraphicsUnits& graphics() { return static_cast<FakeGraphicsUnits&>(*host.graphics); }
    FakeFileSystems& fileSystems() { return static_cast<FakeFileSystems&>(*host.fileSystems); }
    FakeClockSource& clockSource() { return static_cast<FakeClockSource&>(*host.clockSource); }
    FakeMachineInfo& machine() { return static_cast<FakeMachineInfo&>(*host.machine); }
    FakeDisplayInfo& display() { return static_cast<FakeDisplayInfo&>(*host.display); }
    FakeDistributedNotifications& distributed()
    {
        return static_cast<FakeDistributedNotifications&>(*host.distributedNotifications);
    }
    FakePowerMessages& powerMessages() { return static_cast<FakePowerMessages&>(*host.powerMessages); }
    FakePowerSources& powerSources() { return static_cast<FakePowerSources&>(*host.powerSources); }
    FakeDisks& disks() { return static_cast<FakeDisks&>(*host.disks); }
    FakeSensorSource& sensors() { return static_cast<FakeSensorSource&>(*host.sensors); }
    FakePeripheralBatteries& peripherals() { return static_cast<FakePeripheralBatteries&>(*host.peripherals); }
    FakePacketTap& packetTap() { return static_cast<FakePacketTap&>(*host.packetTap); }
    FakeTrafficCounters& trafficCounters() { return static_cast<FakeTrafficCounters&>(*host.trafficCounters); }
    FakeNetworkStatistics& networkStatistics() { return static_cast<FakeNetworkStatistics&>(*host.networkStatistics); }
    FakeProcessConnections& processConnections()
    {
        return static_cast<FakeProcessConnections&>(*host.processConnections);
    }
    FakeNetworkInterfaces& network() { return static_cast<FakeNetworkInterfaces&>(*host.networkInterfaces); }
    FakeWirelessInterface& wireless() { return static_cast<FakeWirelessInterface&>(*host.wireless); }
    FakeNetworkConfiguration& networkConfiguration()
    {
        return static_cast<FakeNetworkConfiguration&>(*host.networkConfiguration);
    }
    FakeSelfUsage& selfUsage() { return static_cast<FakeSelfUsage&>(*host.selfUsage); }

    TemporaryTree files;
    VirtualRuntime runtime;
    Host host;
    NotificationCenter notifications;
    Log log;
    Context context{runtime, host, notifications, log, Paths::underRoot(files.root())};
};

} // namespace meridal::test
