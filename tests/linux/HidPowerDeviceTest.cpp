// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/power/HidPowerDevice.h"
#include "platform/linux/kernel/Descriptor.h"
#include "platform/linux/power/HidPowerDevices.h"
#include "tests/support/TemporaryTree.h"
#include "tests/support/VirtualRuntime.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>

namespace meridal {
namespace {

using namespace std::string_literals;

constexpr auto feature = HidReportKind::Feature;
constexpr auto input = HidReportKind::Input;

// clang-format off
/// Numbered reports, percents, volts and amperes with exponents, and figures that are not the battery's.
const std::string numberedUPS =
    "\x05\x84\x09\x04\xA1\x01"                                                     // UPS
      "\x09\x12\xA1\x00\x85\x02\x75\x10\x95\x01\x15\x00\x27\xFF\xFF\x00\x00"       //   Battery, report 2
        "\x67\x21\xD1\xF0\x00\x55\x05\x09\x30\xB1\x02"                             //     Voltage, 0.01 V
        "\x16\x00\x80\x26\xFF\x7F\x67\x01\x00\x10\x00\x55\x0E\x09\x31\xB1\x02\xC0" //     Current, 0.01 A, with a sign
      "\x09\x1A\xA1\x00\x85\x03\x67\x21\xD1\xF0\x00\x55\x07\x09\x30\xB1\x02\xC0"   //   Input, report 3: Voltage
      "\x09\x24\xA1\x00\x65\x00\x55\x00\x85\x04\x75\x08\x15\x00\x25\x64\x05\x85"   //   PowerSummary, report 4
        "\x09\x2C\xB1\x02\x09\x66\xB1\x02\x09\x66\x81\x02"                         //     CapacityMode, RemainingCapacity
        "\x75\x10\x27\xFF\xFF\x00\x00\x66\x01\x10\x09\x68\xB1\x02"                 //     RunTimeToEmpty, s
        "\x05\x84\x09\x02\xA1\x02\x85\x05\x75\x01\x95\x05\x25\x01\x65\x00\x05\x85" //     PresentStatus, report 5
          "\x09\xD0\x09\x44\x09\x45\x09\x46\x09\x4B\xB1\x02\x75\x03\x95\x01\xB1\x03"
    "\xC0\xC0\xC0"s;

/// One report without a number that is an input only: charge in ampere-seconds, times by their physical range, usages
/// as a range and as four bytes, and globals kept on the stack.
const std::string plainUPS =
    "\x0B\x04\x00\x84\x00\xA1\x01\x0B\x24\x00\x84\x00\xA1\x00\x15\x00\xA4"
      "\x05\x85\x26\xFF\x7F\x75\x10\x95\x02\x67\x01\x10\x10\x00\x55\x02\x19\x66\x29\x67\x81\x02\xB4" // RemainingCapacity,
      "\xA4\x25\xFF\x35\x00\x47\xC4\x3B\x00\x00\x75\x10\x95\x01\x66\x01\x10"                     // FullChargeCapacity
        "\x0B\x6A\x00\x85\x00\x81\x02\xB4"                                  // AverageTimeToFull: 0 to 255 are 0 to 15300 s
      "\x05\x85\x75\x01\x95\x03\x25\x01\x65\x00\x09\xD0\x09\x44\x09\x46\x81\x02"
    "\xC0\xC0"s;
// clang-format on

HidReports numberedReports(std::string status)
{
    return {{{feature, 2}, "\x46\x05\x38\xFF"s}, {{feature, 3}, "\xE6\x00"s}, {{feature, 4}, "\x02\x50\x5C\x12"s},
        {{feature, 5}, std::move(status)}};
}

TEST(HidPowerDevice, FiguresOfTheBatteryInTheirUnits)
{
    const HidPowerDevice ups(numberedUPS);
    EXPECT_TRUE(ups.hasNumberedReports());
    std::vector<HidReportRequest> requests = ups.requests();
    std::sort(requests.begin(), requests.end(), [](const auto& a, const auto& b) { return a.report < b.report; });
    EXPECT_EQ(requests, (std::vector<HidReportRequest>{{feature, 2, 4}, {feature, 4, 4}, {feature, 5, 1}}))
        << "each once, no input where a feature has the figure, and not the mains' voltage";
    const PowerSourceRecord drained{.kind = PowerSourceKind::UPS,
        .supply = PowerSupplyState::Battery,
        .chargePercent = 80,
        .toEmpty = TimeEstimate{78},
        .voltageMv = 13500,
        .currentMa = -2000,
        .verdict = BatteryVerdict::Good};
    EXPECT_EQ(ups.record(numberedReports("\x04")), drained);
    const auto charging = ups.record(numberedReports("\x13"));
    EXPECT_TRUE(charging.charging && charging.toFull == TimeEstimate() && !charging.toEmpty);
    EXPECT_TRUE(charging.supply == PowerSupplyState::AC && charging.currentMa == 2000);
    EXPECT_EQ(charging.verdict, BatteryVerdict::Poor);
    EXPECT_EQ(ups.record(numberedReports("\x05")).supply, PowerSupplyState::Battery) << "tests its battery";
}

TEST(HidPowerDevice, ChargesRangesAndReportsWithoutNumbers)
{
    const HidPowerDevice ups(plainUPS);
    EXPECT_FALSE(ups.hasNumberedReports());
    EXPECT_EQ(ups.requests(), (std::vector<HidReportRequest>{{input, 0, 7}}));
    const auto source = ups.record({{{input, 0}, "\x2C\x01\x90\x01\x5A\x00\x03"s}});
    EXPECT_EQ(source.chargePercent, 75);
    EXPECT_EQ(source.toFull, TimeEstimate{90});
    EXPECT_FALSE(source.charged);
    const auto full = ups.record({{{input, 0}, "\x2C\x01\x90\x01\x5A\x00\x05"s}});
    EXPECT_TRUE(full.charged && !full.charging);
}

TEST(HidPowerDevice, WhatIsNotToldIsLeftOut)
{
    const HidPowerDevice ups(numberedUPS);
    const PowerSourceRecord nothing{.kind = PowerSourceKind::UPS};
    EXPECT_EQ(ups.record({}), nothing);
    // Broken off, outside of its range, all bits set.
    EXPECT_EQ(ups.record({{{feature, 2}, "\x46"s}, {{feature, 4}, "\x02\x65"s}}), nothing);
    HidReports unknown = numberedReports("\x04");
    unknown[{feature, 4}] = "\x02\x50\xFF\xFF"s;
    EXPECT_EQ(ups.record(unknown).toEmpty, TimeEstimate());
    // A voltage without a unit is a number of nobody knows what.
    std::string unitless = numberedUPS;
    unitless.replace(unitless.find("\x67\x21\xD1\xF0"s), 5, "\x67\x00\x00\x00\x00"s);
    EXPECT_FALSE(HidPowerDevice(unitless).record(numberedReports("\x04")).voltageMv);
    // A thousand million values, collections without an end, an end too many, the stack's end.
    for (const std::string& wrong : {"\x05\x84\x09\x04\xA1\x01\x75\x20\x97\x00\xCA\x9A\x3B\x09\x30\xB1\x02"s, "\xC0"s,
             "\xB4"s, "\x75\xFF\x95\xFF\x09\x30\xB1\x02"s}) {
        EXPECT_TRUE(HidPowerDevice(wrong).requests().empty());
    }
    std::string deep;
    for (int i = 0; i < 1000; ++i) {
        deep += "\xA1\x00\xA4"s;
    }
    EXPECT_TRUE(HidPowerDevice(deep + numberedUPS).requests().empty());
}

/// A machine with a UPS on hidraw3, which answers what it is told to.
struct Desk {
    Desk()
    {
        plug("hidraw3", numberedUPS);
        ::mkdir((tree.root() / "dev").c_str(), 0700);
        const std::string node = tree.root() / "dev/hidraw3";
        EXPECT_EQ(::mkfifo(node.c_str(), 0600), 0);
        sender = Descriptor(::open(node.c_str(), O_RDWR));
        devices.look();
    }

    void plug(const std::string& name, const std::string& descriptor) const
    {
        const std::string device = "sys/class/hidraw/" + name + "/device/";
        tree.write(device + "report_descriptor", descriptor);
        tree.write(device + "uevent", "HID_ID=0003:0000FFFF:00000001\nHID_NAME=Acme UPS 650\nHID_UNIQ=4B17\n");
    }
    HidAsk open()
    {
        return [this](const HidReportRequest& request) {
            ++asked;
            if (delay > 0) {
                runtime.advance(delay);
                return HidAnswer{.error = ETIMEDOUT, .bytes = {}};
            }
            const auto answer = reports.find({request.kind, request.report});
            return answer == reports.end() ? HidAnswer{.error = EPIPE, .bytes = {}} : HidAnswer{0, answer->second};
        };
    }
    /// The fifo in the device's place becomes readable; its number is not known here.
    void send(const std::string& report)
    {
        EXPECT_EQ(::write(sender.get(), report.data(), report.size()), static_cast<ssize_t>(report.size()));
        for (int descriptor = 0; descriptor < 256; ++descriptor) {
            runtime.makeReadable(descriptor);
        }
        runtime.runDue();
    }

    test::TemporaryTree tree;
    VirtualRuntime runtime;
    Descriptor sender;
    HidReports reports = numberedReports("\x01");
    double delay = 0; // s until a report does not come
    int asked = 0;
    int changes = 0;
    HidPowerDevices devices{runtime, tree.root(), std::make_shared<Limitations>(), [this] { ++changes; },
        [this](const std::string&) { return open(); }};
};

TEST(HidPowerDevices, AUPSIsAskedWhenItComesAndWhenSomebodyWantsToKnow)
{
    Desk desk;
    desk.plug("hidraw4", "\x05\x01\x09\x06\xA1\x01\x05\x84\x09\x04\x81\x02\xC0"s); // a keyboard
    desk.devices.look();
    EXPECT_TRUE(desk.devices.sources().empty()) << "the device is asked elsewhere";
    desk.runtime.runDue();
    EXPECT_EQ(desk.asked, 3);
    const auto found = desk.devices.sources();
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].name, "Acme UPS 650");
    EXPECT_EQ(found[0].serial, "4B17");
    EXPECT_EQ(found[0].supply, PowerSupplyState::AC);
    EXPECT_EQ(desk.changes, 1);

    desk.runtime.advance(60);
    EXPECT_EQ(desk.asked, 3) << "nobody wants to know";
    desk.reports = numberedReports("\x04");
    auto supply = PowerSupplyState::Unknown;
    const auto note = [&] { supply = desk.devices.sources().at(0).supply; };
    desk.devices.refresh(note);
    EXPECT_EQ(supply, PowerSupplyState::Unknown);
    desk.runtime.runDue();
    EXPECT_EQ(supply, PowerSupplyState::Battery);
    EXPECT_EQ(desk.changes, 2);
    desk.devices.refresh(note);
    EXPECT_EQ(desk.asked, 6) << "that was a moment ago";

    // A driver has come for it, and shows it as a supply.
    desk.tree.write("sys/class/hidraw/hidraw3/device/power_supply/hid-4B17-battery/type", "Battery\n");
    EXPECT_TRUE(desk.devices.sources().empty());
    desk.tree.remove("sys/class/hidraw/hidraw3");
    desk.devices.look();
    EXPECT_EQ(desk.changes, 3);
}

TEST(HidPowerDevices, AUPSThatDoesNotAnswerKeepsNobodyWaiting)
{
    Desk desk;
    desk.runtime.runDue();
    desk.runtime.advance(10);
    desk.delay = 5;
    desk.asked = 0;
    const double before = desk.runtime.monotonicTime();
    double waited = -1;
    desk.devices.refresh([&] { waited = desk.runtime.monotonicTime() - before; });
    desk.runtime.advance(20);
    EXPECT_EQ(waited, HidPowerDevices::patience);
    EXPECT_EQ(desk.asked, 1) << "not for its other reports as well";
    const auto found = desk.devices.sources();
    ASSERT_EQ(found.size(), 1U);
    EXPECT_FALSE(found[0].chargePercent);
}

TEST(HidPowerDevices, WhatAUPSSendsByItselfIsASignToAskIt)
{
    Desk desk;
    desk.runtime.runDue();
    desk.runtime.advance(60);
    desk.reports = numberedReports("\x04");
    desk.asked = 0;
    desk.send("\x05\x04"s);
    EXPECT_EQ(desk.asked, 3);
    EXPECT_EQ(desk.devices.sources().at(0).supply, PowerSupplyState::Battery);
    desk.send("\x05\x04"s);
    desk.runtime.advance(60);
    EXPECT_EQ(desk.asked, 3) << "nothing new";
    for (const char status : "\1\4\1\4"s) { // flickers
        desk.send("\x05"s + status);
    }
    desk.runtime.advance(60);
    EXPECT_EQ(desk.asked, 9);
}

} // namespace
} // namespace meridal
