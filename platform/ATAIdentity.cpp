#include "platform/ATAIdentity.h"

#include "base/Text.h"

#include <algorithm>
#include <cstddef>
#include <numeric>
#include <utility>

namespace meridal {

namespace {

constexpr std::uint16_t nonRotating = 1;
constexpr std::uint16_t slowestRotation = 0x0401; ///< per minute; what lies between is reserved
constexpr std::uint16_t fastestRotation = 0xFFFE;
constexpr std::uint8_t checksumSignature = 0xA5;

/// ATA text: two characters a word, the first one in the word's high byte.
std::optional<std::string> ataText(const SMARTPage& page, std::size_t offset, std::size_t size)
{
    std::string text(
        page.begin() + static_cast<std::ptrdiff_t>(offset), page.begin() + static_cast<std::ptrdiff_t>(offset + size));
    for (std::size_t place = 0; place + 1 < text.size(); place += 2) {
        std::swap(text[place], text[place + 1]);
    }
    return fieldText(text);
}

std::optional<bool> spinsBy(std::uint16_t rotation)
{
    if (rotation == nonRotating) {
        return false;
    }
    return rotation >= slowestRotation && rotation <= fastestRotation ? std::optional(true) : std::nullopt;
}

} // namespace

bool checksumHolds(const SMARTPage& page) { return (std::accumulate(page.begin(), page.end(), 0U) & 0xFFU) == 0; }

bool isBlank(const SMARTPage& page)
{
    return std::all_of(page.begin(), page.end(), [](std::uint8_t byte) { return byte == 0; });
}

std::optional<std::string> fieldText(std::string_view raw)
{
    constexpr std::string_view blanks(" \t\0", 3);
    const std::string_view cut = raw.substr(0, raw.find('\0', std::min(raw.find_first_not_of(blanks), raw.size())));
    const std::size_t begin = cut.find_first_not_of(blanks);
    if (begin == std::string_view::npos) {
        return std::nullopt;
    }
    return printable(cut.substr(begin, cut.find_last_not_of(blanks) - begin + 1));
}

std::optional<ATAIdentity> parseATAIdentity(const SMARTPage& page)
{
    const bool hasChecksum = page[510] == checksumSignature;
    if (isBlank(page) || (hasChecksum && !checksumHolds(page))) {
        return std::nullopt;
    }
    ATAIdentity identity;
    identity.serial = ataText(page, 20, 20);
    identity.firmware = ataText(page, 46, 8);
    identity.model = ataText(page, 54, 40);
    identity.smartSupported = (page[164] & 1U) != 0;                                  // word 82
    identity.smartEnabled = (page[170] & 1U) != 0;                                    // word 85
    identity.spins = spinsBy(static_cast<std::uint16_t>(page[434] | page[435] << 8)); // word 217
    return identity;
}

} // namespace meridal
