// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Lifetime.h"
#include "base/Runtime.h"
#include "platform/host/Limitations.h"
#include "platform/linux/kernel/RootFolder.h"
#include "platform/linux/kernel/Uevents.h"
#include "platform/linux/power/HidPowerDevice.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace meridal {

/// What came of asking for a report: its bytes after its number, or an errno; -1 when nobody is there to ask.
struct HidAnswer {
    int error = 0;
    std::string bytes;
};

/// Opens a hidraw node and gives what asks it for a report, which takes as long as the device does. Any thread.
using HidAsk = std::function<HidAnswer(const HidReportRequest&)>;
using HidOpen = std::function<HidAsk(const std::string& node)>;
/// By a process of its own (meridal-disks), which goes with what this gives.
HidAsk askHidDevice(const std::string& node);

/// UPSs that speak USB HID and have no driver that publishes them as a supply: those in /sys/class/hidraw whose report
/// descriptor has an application collection "UPS". They are asked when they come, when they send an input report that
/// differs from the one before, and when somebody wants to know; never here, as a UPS may take 5 s for a report, but on a
/// slow queue each, and what they said last is kept. Main queue only.
class HidPowerDevices {
public:
    /// Calls the handler when a record changed, came or went.
    HidPowerDevices(Runtime& runtime, const std::filesystem::path& root, std::shared_ptr<Limitations> limitations,
        std::function<void()> changed, HidOpen open = askHidDevice);
    ~HidPowerDevices();
    HidPowerDevices(const HidPowerDevices&) = delete;
    HidPowerDevices& operator=(const HidPowerDevices&) = delete;

    /// Of those that have been asked: what they said last. One that does not answer is there without figures.
    std::vector<PowerSourceRecord> sources() const;
    /// Asks them anew and calls back when all have answered, at once when there is nothing to wait for.
    void refresh(Task done);
    /// Looks which there are. Done at the start and whenever the kernel announces one.
    void look();

    static constexpr double patience = 3;         ///< s that somebody waits for their answers
    static constexpr double freshness = 1;        ///< s that an answer counts as new
    static constexpr double shortestInterval = 5; ///< s between two readings because of what they send by themselves
    static constexpr std::size_t mostDevices = 8;

private:
    struct Device;
    struct Reading;
    using DevicePointer = std::shared_ptr<Device>;

    DevicePointer deviceAt(const std::string& name) const;
    bool isPublished(const Device& device) const;
    bool isAwaited(const Device& device) const;
    void read(const DevicePointer& device);
    void finished(const DevicePointer& device, Reading& reading);
    void listen(const DevicePointer& device);
    void heard(const DevicePointer& device);
    void readLater(const DevicePointer& device, double seconds);
    void finishWhenComplete();
    void finish();

    Runtime& runtime_;
    RootFolder root_;
    std::shared_ptr<Limitations> limitations_;
    std::function<void()> changed_;
    HidOpen open_;
    std::vector<DevicePointer> devices_;
    std::vector<Task> waiting_;
    std::unique_ptr<Timer> timer_; ///< the end of their patience
    std::unique_ptr<Uevents> uevents_;
    Lifetime lifetime_;
};

} // namespace meridal
