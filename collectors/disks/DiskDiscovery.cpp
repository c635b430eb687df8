#include "collectors/disks/DiskDiscovery.h"

#include "base/Text.h"
#include "platform/ZAVIOKitUtilities.h"

#include <algorithm>
#include <string_view>

namespace meridal {

namespace {

std::string trimmed(std::string_view text)
{
    constexpr std::string_view blanks(" \t\r\n\v\f\0", 7);
    const std::size_t begin = text.find_first_not_of(blanks);
    if (begin == std::string_view::npos) {
        return {};
    }
    return printable(text.substr(begin, text.find_last_not_of(blanks) - begin + 1));
}

/// A property as text: numbers too, as some bridges keep their serial so. Absent for nothing, and for nothing but blanks.
std::optional<std::string> asText(const Value& value)
{
    std::string text;
    if (value.is_string()) {
        text = trimmed(value.get_ref<const std::string&>());
    } else if (value.is_number()) {
        text = serialise(value);
    }
    return text.empty() ? std::nullopt : std::optional(std::move(text));
}

std::optional<std::string> entryOf(const Value& dictionary, std::string_view key)
{
    const Value* value = find(dictionary, key);
    return value ? asText(*value) : std::nullopt;
}

} // namespace

std::optional<std::string> modelOfDisk(const RegistryEntry& entry)
{
    const Value characteristics = entry.property("Device Characteristics");
    const auto vendor = entryOf(characteristics, "Vendor Name");
    auto model = entryOf(characteristics, "Product Name");
    if (model && vendor) {
        model = *vendor + ' ' + *model;
    }
    if (model && model->starts_with("APPLE HDD")) {
        return "Apple HDD";
    }
    return model && model->starts_with("APPLE SSD") ? "Apple SSD" : model;
}

std::optional<std::string> serialOfDisk(const RegistryEntry& entry)
{
    if (auto own = entryOf(entry.property("Device Characteristics"), "Serial Number")) {
        return own;
    }
    // The last one found counts: each names the disk more closely than the one before.
    struct Place {
        std::string_view key;
        int levels;
    };
    std::optional<std::string> serial;
    for (const Place place :
        {Place{"GUID", 5}, Place{"USB Serial Number", 10}, Place{"INQUIRY Unit Serial Number", 8}}) {
        if (auto found = asText(ZAVIOKitUtilities::searchForKeyInParents(place.key, place.levels, entry))) {
            serial = std::move(found);
        }
    }
    return serial;
}

std::optional<std::string> bsdOfDisk(const RegistryEntry& entry) { return asText(entry.searchChildren("BSD Name")); }

} // namespace meridal
