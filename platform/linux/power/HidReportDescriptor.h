// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace meridal {

/// A usage of the HID usage tables: what a control or a collection of a device is for.
struct HidUsage {
    std::uint16_t page = 0;
    std::uint16_t usage = 0;
    bool operator==(const HidUsage&) const = default;
};

/// "UPS" of the "Power Device" page.
constexpr HidUsage hidUPS = {.page = 0x84, .usage = 0x04};

/// Whether a device whose report descriptor this is (a HID device's "report_descriptor" in sysfs) is for that: one of
/// its application collections has the usage. Mice and keyboards use controls of the power pages for their own batteries,
/// which does not make them power supplies.
bool hasApplication(std::string_view reportDescriptor, HidUsage usage);

/// The reports that a device can be asked for.
enum class HidReportKind : std::uint8_t { Input, Feature };

/// One control of a device: where a report holds its value, and what the number means.
struct HidField {
    HidReportKind kind = HidReportKind::Input;
    std::uint8_t report = 0; ///< its number; 0 of a device that does not number its reports
    HidUsage usage;
    std::vector<HidUsage> collections; ///< that it is in, outermost first
    std::size_t bit = 0;               ///< its lowest, from the report's first byte after the number
    unsigned size = 0;                 ///< bits, 1 to 32
    std::int64_t logicalMinimum = 0;
    std::int64_t logicalMaximum = 0;
    std::int64_t physicalMinimum = 0; ///< both 0: the same as the logical ones
    std::int64_t physicalMaximum = 0;
    std::uint32_t unit = 0; ///< system and dimensions, a nibble each; 0 = none
    int exponent = 0;       ///< of ten, by which the physical value counts

    /// The number in a report, of which these are the bytes after its number. Absent where the report is too short or the number is
    /// outside of the logical range, by which devices say that they have no value.
    std::optional<std::int64_t> raw(std::string_view bytes) const;
    /// The physical value in the field's unit.
    std::optional<double> value(std::string_view bytes) const;
};

/// What a report descriptor says of the reports that can be asked for.
struct HidReportLayout {
    std::vector<HidField> fields; ///< that have a usage, in the descriptor's order; arrays of selectors are left out
    std::map<std::pair<HidReportKind, std::uint8_t>, std::size_t> bits; ///< of each report, without its number
    bool isNumbered = false;                                            ///< reports begin with their number
};

/// Reads a descriptor up to its end, or to where it makes no sense any more: what came before counts. Depth, number of
/// fields and length of reports are bounded by what the kernel accepts.
HidReportLayout hidReportLayout(std::string_view reportDescriptor);

} // namespace meridal
