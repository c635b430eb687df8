// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/power/HidReportDescriptor.h"

#include <algorithm>
#include <cmath>
#include <tuple>

namespace meridal {

namespace {

// Device Class Definition for Human Interface Devices 1.11, 6.2.2: the prefixes of items without their size
constexpr unsigned usagePageItem = 0x04;
constexpr unsigned usageItem = 0x08;
constexpr unsigned usageMinimumItem = 0x18;
constexpr unsigned usageMaximumItem = 0x28;
constexpr unsigned logicalMinimumItem = 0x14;
constexpr unsigned logicalMaximumItem = 0x24;
constexpr unsigned physicalMinimumItem = 0x34;
constexpr unsigned physicalMaximumItem = 0x44;
constexpr unsigned unitExponentItem = 0x54;
constexpr unsigned unitItem = 0x64;
constexpr unsigned reportSizeItem = 0x74;
constexpr unsigned reportIDItem = 0x84;
constexpr unsigned reportCountItem = 0x94;
constexpr unsigned pushItem = 0xA4;
constexpr unsigned popItem = 0xB4;
constexpr unsigned inputItem = 0x80;
constexpr unsigned featureItem = 0xB0;
constexpr unsigned collectionItem = 0xA0;
constexpr unsigned endCollectionItem = 0xC0;
constexpr unsigned longItem = 0xFE; ///< a size and a tag follow
constexpr unsigned applicationCollection = 1;
constexpr std::uint32_t variableFlag = 2; ///< of main items: a value each, and no array of selectors

constexpr unsigned typeMask = 0x0C;
constexpr unsigned mainType = 0x00;
constexpr unsigned localType = 0x08;

// Bounds of what a descriptor may ask us to remember.
constexpr std::size_t mostCollections = 16; ///< inside each other
constexpr std::size_t mostPushed = 16;
constexpr std::size_t mostUsages = 256; ///< of one main item
constexpr std::size_t mostFields = 2048;
constexpr std::size_t mostBits = 16384 * 8; ///< HID_MAX_BUFFER_SIZE of a report
constexpr unsigned largestField = 32;       ///< bits
constexpr int largestExponent = 16;

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

namespace {

std::int64_t signExtended(std::uint32_t value, std::size_t bits)
{
    const std::uint64_t sign = std::uint64_t{1} << (bits - 1);
    return static_cast<std::int64_t>((value ^ sign) - sign);
}

/// The value of an item as a number with a sign.
std::int64_t signedValue(const Item& item)
{
    return item.size == 0 ? 0 : signExtended(item.value, 8 * std::min<std::size_t>(item.size, 4));
}

/// Four bits with a sign by the class definition, where some devices give a whole byte.
int exponentOf(const Item& item)
{
    constexpr unsigned nibble = 4;
    const std::int64_t given = signedValue(item);
    const std::int64_t exponent = given >= 0 && given < 16 ? signExtended(item.value, nibble) : given;
    return static_cast<int>(std::clamp<std::int64_t>(exponent, -largestExponent, largestExponent));
}

HidUsage wholeUsage(std::uint32_t usage)
{
    return {.page = static_cast<std::uint16_t>(usage >> 16U), .usage = static_cast<std::uint16_t>(usage)};
}

/// Goes through the items of a descriptor and notes where the values are.
class LayoutReader {
public:
    /// False where there is no going on.
    bool take(const Item& item)
    {
        if (item.prefix == longItem) {
            return true;
        }
        if ((item.prefix & typeMask) == localType) {
            takeLocal(item);
            return true;
        }
        if ((item.prefix & typeMask) != mainType) {
            return takeGlobal(item);
        }
        const bool goesOn = takeMain(item);
        usages_.clear();
        lowest_.reset();
        return goesOn;
    }

    HidReportLayout layout() && { return std::move(layout_); }

private:
    /// What holds until it is given anew.
    struct Globals {
        std::uint32_t page = 0;
        Item logicalMinimum;
        Item logicalMaximum;
        Item physicalMinimum;
        Item physicalMaximum;
        int exponent = 0;
        std::uint32_t unit = 0;
        std::uint32_t size = 0;
        std::uint32_t count = 0;
        std::uint8_t report = 0;
    };

    void takeLocal(const Item& item)
    {
        if (item.prefix == usageItem) {
            note(item, item.value);
        } else if (item.prefix == usageMinimumItem) {
            lowest_ = item;
        } else if (item.prefix == usageMaximumItem && lowest_) {
            for (std::uint64_t each = lowest_->value; each <= item.value && usages_.size() < mostUsages; ++each) {
                note(*lowest_, static_cast<std::uint32_t>(each));
            }
            lowest_.reset();
        }
    }

    void note(const Item& item, std::uint32_t usage)
    {
        if (usages_.size() < mostUsages) {
            usages_.push_back({.prefix = item.prefix, .size = item.size, .value = usage});
        }
    }

    bool takeGlobal(const Item& item)
    {
        switch (item.prefix) {
        case usagePageItem:
            now_.page = item.value & 0xFFFFU;
            break;
        case logicalMinimumItem:
            now_.logicalMinimum = item;
            break;
        case logicalMaximumItem:
            now_.logicalMaximum = item;
            break;
        case physicalMinimumItem:
            now_.physicalMinimum = item;
            break;
        case physicalMaximumItem:
            now_.physicalMaximum = item;
            break;
        case unitExponentItem:
            now_.exponent = exponentOf(item);
            break;
        case unitItem:
            now_.unit = item.value;
            break;
        case reportSizeItem:
            now_.size = item.value;
            break;
        case reportCountItem:
            now_.count = item.value;
            break;
        case reportIDItem:
            now_.report = static_cast<std::uint8_t>(item.value);
            layout_.isNumbered = true;
            return item.value > 0 && item.value <= 0xFF;
        case pushItem:
            pushed_.push_back(now_);
            return pushed_.size() <= mostPushed;
        case popItem:
            if (pushed_.empty()) {
                return false;
            }
            now_ = pushed_.back();
            pushed_.pop_back();
            break;
        default:
            break; // reserved
        }
        return true;
    }

    bool takeMain(const Item& item)
    {
        if (item.prefix == collectionItem) {
            collections_.push_back(usages_.empty() ? HidUsage() : usageAt(0));
            return collections_.size() <= mostCollections;
        }
        if (item.prefix == endCollectionItem) {
            if (collections_.empty()) {
                return false;
            }
            collections_.pop_back();
            return true;
        }
        if (item.prefix == inputItem || item.prefix == featureItem) {
            return takeFields(item, item.prefix == inputItem ? HidReportKind::Input : HidReportKind::Feature);
        }
        return true; // of an output nothing can be read
    }

    bool takeFields(const Item& item, HidReportKind kind)
    {
        std::size_t& bits = layout_.bits[{kind, now_.report}];
        if (std::uint64_t{now_.size} * now_.count > mostBits - bits) {
            return false;
        }
        const std::size_t begin = bits;
        bits += std::size_t{now_.size} * now_.count;
        if (usages_.empty() || (item.value & variableFlag) == 0 || now_.size == 0 || now_.size > largestField) {
            return true;
        }
        // The last usage stands for all that come after it: the first of those is enough.
        const std::size_t count = std::min<std::size_t>(now_.count, usages_.size());
        for (std::size_t i = 0; i < count; ++i) {
            if (layout_.fields.size() == mostFields) {
                return false;
            }
            addField(kind, usageAt(i), begin + i * now_.size);
        }
        return true;
    }

    void addField(HidReportKind kind, HidUsage usage, std::size_t bit)
    {
        const auto range = [](const Item& minimum, const Item& maximum) {
            // Without negative numbers in the range, devices leave no room for a sign in the upper bound.
            const std::int64_t low = signedValue(minimum);
            return std::pair(low, low < 0 ? signedValue(maximum) : std::int64_t{maximum.value});
        };
        HidField field{.kind = kind, .report = now_.report, .usage = usage, .collections = collections_, .bit = bit};
        field.size = now_.size;
        std::tie(field.logicalMinimum, field.logicalMaximum) = range(now_.logicalMinimum, now_.logicalMaximum);
        std::tie(field.physicalMinimum, field.physicalMaximum) = range(now_.physicalMinimum, now_.physicalMaximum);
        field.unit = now_.unit;
        field.exponent = now_.exponent;
        layout_.fields.push_back(std::move(field));
    }

    /// A usage of four bytes brings its page along.
    HidUsage usageAt(std::size_t place) const
    {
        const Item& item = usages_[place];
        return wholeUsage(item.size == 4 ? item.value : now_.page << 16U | (item.value & 0xFFFFU));
    }

    HidReportLayout layout_;
    Globals now_;
    std::vector<Globals> pushed_;
    std::vector<HidUsage> collections_;
    std::vector<Item> usages_;   ///< since the last main item
    std::optional<Item> lowest_; ///< of a range of usages whose end has not come yet
};

} // namespace

HidReportLayout hidReportLayout(std::string_view reportDescriptor)
{
    LayoutReader reader;
    for (auto item = takeItem(reportDescriptor); item && reader.take(*item); item = takeItem(reportDescriptor)) { }
    return std::move(reader).layout();
}

std::optional<std::int64_t> HidField::raw(std::string_view bytes) const
{
    if (size == 0 || size > largestField || bit + size > bytes.size() * 8) {
        return std::nullopt;
    }
    std::uint32_t bits = 0; // the lowest first
    for (unsigned i = 0; i < size; ++i) {
        const std::size_t place = bit + i;
        const auto byte = static_cast<std::uint8_t>(bytes[place / 8]);
        bits |= (static_cast<std::uint32_t>(byte) >> (place % 8) & 1U) << i;
    }
    const std::int64_t number = logicalMinimum < 0 ? signExtended(bits, size) : std::int64_t{bits};
    const bool isBounded = logicalMinimum < logicalMaximum;
    if (isBounded && (number < logicalMinimum || number > logicalMaximum)) {
        return std::nullopt;
    }
    return number;
}

std::optional<double> HidField::value(std::string_view bytes) const
{
    const auto number = raw(bytes);
    if (!number) {
        return std::nullopt;
    }
    auto physical = static_cast<double>(*number);
    if ((physicalMinimum != 0 || physicalMaximum != 0) && logicalMinimum < logicalMaximum) {
        const auto logicalRange = static_cast<double>(logicalMaximum - logicalMinimum);
        const auto physicalRange = static_cast<double>(physicalMaximum - physicalMinimum);
        physical = static_cast<double>(*number - logicalMinimum) / logicalRange * physicalRange
            + static_cast<double>(physicalMinimum);
    }
    return physical * std::pow(10.0, exponent);
}

} // namespace meridal
