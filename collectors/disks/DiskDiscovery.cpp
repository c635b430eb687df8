// SPDX-License-Identifier: Apache-2.0
#include "collectors/disks/DiskDiscovery.h"

#include "base/Text.h"

#include <string_view>

namespace meridal {

namespace {

/// Absent for nothing, and for nothing but blanks.
std::optional<std::string> trimmed(const std::optional<std::string>& text)
{
    constexpr std::string_view blanks(" \t\r\n\v\f\0", 7);
    const std::size_t begin = text ? text->find_first_not_of(blanks) : std::string::npos;
    if (begin == std::string::npos) {
        return std::nullopt;
    }
    return printable(std::string_view(*text).substr(begin, text->find_last_not_of(blanks) - begin + 1));
}

} // namespace

std::optional<std::string> modelOfDisk(const DiskRecord& disk)
{
    const auto vendor = trimmed(disk.vendor);
    auto model = trimmed(disk.model);
    if (model && vendor) {
        model = *vendor + ' ' + *model;
    }
    if (model && model->starts_with("APPLE HDD")) {
        return "Apple HDD";
    }
    return model && model->starts_with("APPLE SSD") ? "Apple SSD" : model;
}

std::optional<std::string> serialOfDisk(const DiskRecord& disk)
{
    // Each names the disk more closely than the next one.
    for (const auto* serial : {&disk.serial, &disk.unitSerial, &disk.usbSerial, &disk.guid}) {
        if (auto found = trimmed(*serial)) {
            return found;
        }
    }
    return std::nullopt;
}

} // namespace meridal
