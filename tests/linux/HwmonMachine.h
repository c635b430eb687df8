// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/linux/sensors/HwmonSensors.h"
#include "tests/support/HandWork.h"
#include "tests/support/TemporaryTree.h"
#include "tests/support/VirtualRuntime.h"

#include <gtest/gtest.h>

#include <deque>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace meridal::test {

/// A machine's hwmon chips as the kernel lays them out: folders of devices, with links to them from the class.
class HwmonMachine {
public:
    using Files = std::vector<std::pair<std::string, std::string>>;

    /// A chip behind a device. `place` is the device's path below sys/devices; its bus may be empty.
    void chip(const std::string& entry, const std::string& place, const std::string& bus, const std::string& name,
        const Files& files)
    {
        const std::string device = "sys/devices/" + place;
        const std::string folder = device + "/hwmon/" + entry;
        tree.write(folder + "/name", name + "\n");
        for (const auto& [file, text] : files) {
            tree.write(folder + "/" + file, text + "\n");
        }
        tree.link(folder + "/device", "../..");
        if (!bus.empty() && !std::filesystem::exists(tree.root() / device / "subsystem")) {
            std::filesystem::create_directories(tree.root() / "sys/bus" / bus);
            tree.link(device + "/subsystem", tree.root() / "sys/bus" / bus);
        }
        tree.link("sys/class/hwmon/" + entry, "../../devices/" + place + "/hwmon/" + entry);
        folders_[entry] = folder;
    }
    void set(const std::string& entry, const std::string& file, const std::string& text)
    {
        tree.write(folders_.at(entry) + "/" + file, text);
    }
    void remove(const std::string& entry)
    {
        tree.remove("sys/class/hwmon/" + entry);
        tree.remove(folders_.at(entry));
    }
    /// The adapter, as a daemon that starts makes it.
    void start()
    {
        sensors = std::make_unique<HwmonSensors>(
            runtime, HwmonOptions{.root = tree.root(), .work = std::make_unique<HandWork>(script)});
    }
    /// By "chip label", those that are ignored left out.
    std::map<std::string, SensorRecord> records() const
    {
        std::map<std::string, SensorRecord> records;
        for (const SensorRecord& record : sensors->sensors()) {
            if (!record.isIgnored) {
                records[record.chip + " " + record.label] = record;
            }
        }
        return records;
    }
    std::string key(const std::string& name) const { return records().at(name).key; }
    SensorReading read(const std::string& key) const { return sensors->read({&key, 1}).front(); }
    std::optional<double> value(const std::string& key) const { return read(key).value; }
    /// By chip and label.
    std::optional<double> valueOf(const std::string& name) const
    {
        runtime.advance(1);
        return value(key(name));
    }

    TemporaryTree tree;
    mutable VirtualRuntime runtime;
    std::shared_ptr<HandWork::Script> script = std::make_shared<HandWork::Script>();
    std::unique_ptr<HwmonSensors> sensors;

private:
    std::map<std::string, std::string> folders_;
};

} // namespace meridal::test
