// SPDX-License-Identifier: Apache-2.0
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
constexpr std::uint16_t allOnes = 0xFFFF;
constexpr int firstModernVersion = 9; ///< bit of word 80: ACS-2

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

std::uint16_t wordAt(const SMARTPage& page, std::size_t word)
{
    return static_cast<std::uint16_t>(page[2 * word] | page[2 * word + 1] << 8);
}

/// The two highest bits of some words tell whether the disk has filled them, and those that go with them, in.
bool isValidated(std::uint16_t word) { return (word & 0xC000U) == 0x4000U; }

/// Word 106 tells whether logical sectors are longer than usual, and then words 117 and 118 how long, in words.
std::uint32_t sectorSizeOf(const SMARTPage& page)
{
    constexpr std::uint32_t usual = 512;
    constexpr std::uint32_t longest = 65'536;
    const std::uint16_t kind = wordAt(page, 106);
    const std::uint32_t words = wordAt(page, 117) | static_cast<std::uint32_t>(wordAt(page, 118)) << 16;
    const bool isLong = isValidated(kind) && (kind & 0x1000U) != 0;
    return isLong && words > usual / 2 && words <= longest / 2 ? words * 2 : usual;
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
    const std::uint8_t first = page[0];
    return (first == 0 || first == 0xFF)
        && std::all_of(page.begin(), page.end(), [first](std::uint8_t byte) { return byte == first; });
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
    identity.smartSupported = (page[164] & 1U) != 0; // word 82
    identity.smartEnabled = !isValidated(wordAt(page, 87)) || (wordAt(page, 85) & 1U) != 0;
    identity.spins = spinsBy(wordAt(page, 217));
    const std::uint16_t versions = wordAt(page, 80);
    identity.isModern = versions != allOnes && versions >> firstModernVersion != 0;
    identity.sectorSize = sectorSizeOf(page);
    return identity;
}

} // namespace meridal
