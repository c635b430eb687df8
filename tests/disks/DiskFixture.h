#pragma once

#include "collectors/disks/SMARTStatCollector.h"
#include "tests/support/FakeHost.h"
#include "tests/support/HasMembers.h"
#include "tests/support/SMARTPageBuilder.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>

namespace meridal::test {

/// Disks on a fake machine, and a collector that somebody asks.
class DiskTest : public ::testing::Test {
protected:
    DiskTest()
    {
        collector->setWanted([this] { return wanted; });
    }

    struct Plugged {
        std::shared_ptr<FakeRegistryEntry> entry;
        std::shared_ptr<FakeDisk> disk;
    };

    Plugged plug(const std::string& path, const char* capability, Value characteristics,
        std::shared_ptr<FakeRegistryEntry> parent = nullptr)
    {
        Plugged plugged{std::make_shared<FakeRegistryEntry>(path, std::move(parent)), std::make_shared<FakeDisk>()};
        plugged.entry->properties = {{capability, true}, {"Device Characteristics", std::move(characteristics)}};
        plugged.entry->children = {{"BSD Name", path.substr(path.rfind('/') + 1)}};
        machine.registry().entries.push_back(plugged.entry);
        machine.smartDevices().disks[path] = plugged.disk;
        return plugged;
    }
    Plugged plugATA(const std::string& path, const std::string& serial, const std::string& model = "WDC WD40EFRX")
    {
        Plugged plugged = plug(path, "SMART Capable", {{"Product Name", model}, {"Serial Number", serial}});
        plugged.disk->data = dataPage(usualAttributes());
        plugged.disk->thresholds = thresholdPage(usualAttributes());
        plugged.disk->identity = identifyPage({.model = model});
        return plugged;
    }
    Plugged plugNVMe(const std::string& path, const std::string& serial)
    {
        Plugged plugged = plug(path, "NVMe SMART Capable", {{"Product Name", "FAST 1000"}, {"Serial Number", serial}});
        plugged.disk->health = healthPage({});
        plugged.disk->controller = controllerPage(serial, "FAST 1000", "2B2Q");
        return plugged;
    }
    void unplug(const Plugged& plugged)
    {
        std::erase(machine.registry().entries, plugged.entry);
        announce();
    }
    void announce()
    {
        machine.registry().announce();
        machine.runtime.runDue();
    }

    /// What the daemon does: it looks for disks at the first wish, and reads them every 30 s while somebody wants that.
    void start()
    {
        collector->loadDisks();
        machine.runtime.runDue();
    }
    void tick()
    {
        collector->updateStats([this] { ++updates; });
        machine.runtime.runDue();
    }
    void watchFor(double seconds)
    {
        for (double passed = 0; passed < seconds; passed += 30) {
            if (wanted) {
                tick();
            }
            machine.runtime.advance(30);
        }
    }
    std::shared_ptr<SMARTStatCollectorItem> item(const std::string& key)
    {
        return std::static_pointer_cast<SMARTStatCollectorItem>(collector->itemWithKey(key));
    }

    FakeMachine machine;
    bool wanted = true;
    int updates = 0;
    std::unique_ptr<SMARTStatCollector> collector = std::make_unique<SMARTStatCollector>(machine.context);
};

} // namespace meridal::test
