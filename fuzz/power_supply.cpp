// SPDX-License-Identifier: Apache-2.0
// The "uevent" of a power supply: the figures derived from whatever a driver says must stay within their meaning. And the
// report descriptor of its device, which is the device's own, as are the reports that it describes.

#include "platform/linux/power/HidPowerDevice.h"
#include "platform/linux/power/LinuxPeripheralBatteries.h"
#include "platform/linux/power/PowerSupplies.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace {

void require(bool holds)
{
    if (!holds) {
        std::abort();
    }
}

void requireFinite(const std::optional<double>& figure) { require(!figure || std::isfinite(*figure)); }

/// A UPS that describes itself by these bytes and answers with the same.
void describeUPS(std::string_view bytes)
{
    using namespace meridal;
    const HidPowerDevice ups(bytes);
    HidReports answers;
    require(ups.requests().size() <= HidPowerDevice::mostRequests);
    for (const HidReportRequest& request : ups.requests()) {
        require(request.size > 0 && request.size <= HidPowerDevice::largestReport);
        answers[{request.kind, request.report}] = bytes.substr(bytes.size() - std::min(bytes.size(), request.size));
    }
    const PowerSourceRecord source = ups.record(answers);
    const auto within = [](const auto& figure, std::int64_t lowest, std::int64_t highest) {
        require(!figure || (*figure >= lowest && *figure <= highest));
    };
    within(source.chargePercent, 0, 100);
    within(source.voltageMv, 1'000, 1'000'000);
    within(source.currentMa, -1'000'000, 1'000'000);
    for (const auto& estimate : {source.toEmpty, source.toFull}) {
        within(estimate.value_or(TimeEstimate()).minutes, 0, 30 * 24 * 60);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace meridal;
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    hasApplication(bytes, hidUPS);
    describeUPS(bytes);
    const PowerSupply supply("BAT0", bytes);
    const auto percent = supply.percent();
    require(!percent || (*percent >= 0 && *percent <= 100));
    requireFinite(supply.millivolts());
    require(supply.millivolts().value_or(1) > 0);
    const auto current = supply.milliamperes();
    requireFinite(current);
    require(!current || supply.status() != "Charging" || *current >= 0);
    require(!current || supply.status() != "Discharging" || *current <= 0);
    for (const char* amount : {"now", "full", "full_design"}) {
        requireFinite(supply.milliampereHours(amount));
    }
    require(supply.minutesToEmpty().value_or(0) >= 0);
    require(supply.minutesToFull().value_or(0) >= 0);
    require(!(supply.isInternalBattery() && supply.isPeripheralBattery()));
    const PeripheralBattery peripheral = LinuxPeripheralBatteries::batteryOf(supply);
    require(!peripheral.key.empty() && !peripheral.name.empty());
    return 0;
}
