#include "platform/linux/HidReportDescriptor.h"

#include <algorithm>
#include <cstddef>
#include <optional>

namespace meridal {

namespace {

// Device Class Definition for Human Interface Devices 1.11, 6.2.2: the prefixes of items without their size
constexpr unsigned usagePageItem = 0x04;
constexpr unsigned usageItem = 0x08;
constexpr unsigned collectionItem = 0xA0;
constexpr unsigned longItem = 0xFE; ///< a size and a tag follow
constexpr unsigned applicationCollection = 1;

constexpr unsigned typeMask = 0x0C;
constexpr unsigned mainType = 0x00;

/// One item of a descriptor.
struct Item {
    unsigned prefix = 0; ///< without the size
    std::size_t size = 0;
    std::uint32_t value = 0;
};

/// Takes the next item off a descriptor. Absent at its end, or where it breaks off.
std::optional<Item> takeItem(std::string_view& rest)
{
    const auto byteAt = [&rest](std::size_t place) { return static_cast<std::uint8_t>(rest[place]); };
    if (rest.empty()) {
        return std::nullopt;
    }
    Item item;
    std::size_t header = 1;
    if (byteAt(0) == longItem) {
        if (rest.size() < 3) {
            return std::nullopt;
        }
        item.prefix = longItem;
        item.size = byteAt(1);
        header = 3;
    } else {
        item.prefix = byteAt(0) & ~3U;
        item.size = (byteAt(0) & 3U) == 3 ? 4 : byteAt(0) & 3U;
    }
    if (rest.size() - header < item.size) {
        return std::nullopt;
    }
    for (std::size_t i = 0; i < std::min<std::size_t>(item.size, 4); ++i) {
        item.value |= static_cast<std::uint32_t>(byteAt(header + i)) << (8 * i);
    }
    rest.remove_prefix(header + item.size);
    return item;
}

} // namespace

bool hasApplication(std::string_view reportDescriptor, HidUsage usage)
{
    std::uint32_t page = 0;
    std::optional<Item> named; // the first usage since the last main item
    while (const auto item = takeItem(reportDescriptor)) {
        if (item->prefix == usagePageItem) {
            page = item->value;
        } else if (item->prefix == usageItem) {
            named = named ? named : item;
        } else if (item->prefix != longItem && (item->prefix & typeMask) == mainType) {
            if (item->prefix == collectionItem && item->value == applicationCollection && named) {
                // A usage of four bytes brings its page along.
                const std::uint32_t whole = named->size == 4 ? named->value : page << 16U | named->value;
                if (whole == (static_cast<std::uint32_t>(usage.page) << 16U | usage.usage)) {
                    return true;
                }
            }
            named.reset();
        }
    }
    return false;
}

} // namespace meridal
