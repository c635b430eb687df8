#pragma once

#include <cstdint>
#include <string_view>

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

} // namespace meridal
