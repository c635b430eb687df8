// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/PowerSources.h"
#include "platform/linux/power/HidReportDescriptor.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace meridal {

/// A report to ask a device for.
struct HidReportRequest {
    HidReportKind kind = HidReportKind::Feature;
    std::uint8_t report = 0;
    std::size_t size = 0; ///< bytes after its number
    bool operator==(const HidReportRequest&) const = default;
};

/// What a device answered: the bytes after each report's number.
using HidReports = std::map<std::pair<HidReportKind, std::uint8_t>, std::string>;

/// A UPS by its report descriptor: which reports hold the figures of its battery, and what they say (Universal Serial
/// Bus Usage Tables for HID Power Devices 1.0: the pages "Power Device", 84h, and "Battery System", 85h). Pure: who has
/// the device asks it.
class HidPowerDevice {
public:
    explicit HidPowerDevice(std::string_view reportDescriptor);

    /// The reports that hold anything of use, each once. Few: a device takes milliseconds for each.
    const std::vector<HidReportRequest>& requests() const { return requests_; }
    bool hasNumberedReports() const { return isNumbered_; }

    /// The device as a source of power, without its name. What no report holds is absent.
    PowerSourceRecord record(const HidReports& answers) const;

    static constexpr std::size_t largestReport = 4095; ///< bytes after its number
    static constexpr std::size_t mostRequests = 32;

private:
    enum Figure : std::size_t {
        RemainingCapacity,
        FullChargeCapacity,
        DesignCapacity,
        CapacityMode,
        RelativeCharge,
        TimeToEmpty,
        TimeToFull,
        ACPresent,
        BatteryPresent,
        Charging,
        Discharging,
        FullyCharged,
        NeedReplacement,
        Voltage,
        Current,
        FigureCount
    };
    struct Wanted;

    static std::optional<int> fitness(const Wanted& wanted, const HidField& field);
    void findFields(const HidReportLayout& layout);
    void makeRequests(const HidReportLayout& layout);
    std::optional<double> value(Figure figure, const HidReports& answers) const;
    std::optional<bool> flag(Figure figure, const HidReports& answers) const;
    std::optional<double> inUnit(Figure figure, std::uint32_t unit, double scale, const HidReports& answers) const;
    TimeEstimate minutes(Figure figure, const HidReports& answers) const;
    std::optional<double> percent(const HidReports& answers) const;
    void readState(PowerSourceRecord& source, const HidReports& answers) const;

    std::array<std::optional<HidField>, FigureCount> fields_;
    std::vector<HidReportRequest> requests_;
    bool isNumbered_ = false;
};

} // namespace meridal
