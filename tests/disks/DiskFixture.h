// SPDX-License-Identifier: Apache-2.0
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

    using Plugged = std::shared_ptr<FakeDisk>;

    Plugged plug(DiskRecord record)
    {
        auto disk = std::make_shared<FakeDisk>();
        record.blockDevice = record.path.substr(record.path.rfind('/') + 1);
        disk->record = std::move(record);
        machine.disks().plugged.push_back(disk);
        return disk;
    }
    Plugged plugATA(const std::string& path, const std::string& serial, const std::string& model = "WDC WD40EFRX")
    {
        Plugged disk = plug({.path = path, .model = model, .serial = serial});
        disk->data = dataPage(usualAttributes());
        disk->thresholds = thresholdPage(usualAttributes());
        disk->identity = identifyPage({.model = model});
        return disk;
    }
    Plugged plugNVMe(const std::string& path, const std::string& serial)
    {
        Plugged disk = plug({.path = path, .kind = SMARTKind::NVMe, .model = "FAST 1000", .serial = serial});
        disk->health = healthPage({});
        disk->controller = controllerPage(serial, "FAST 1000", "2B2Q");
        return disk;
    }
    void unplug(const Plugged& disk)
    {
        std::erase(machine.disks().plugged, disk);
        announce();
    }
    void announce()
    {
        machine.disks().observers.tell();
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
