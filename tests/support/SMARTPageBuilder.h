// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/SMARTDevice.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <numeric>
#include <string>
#include <string_view>
#include <vector>

namespace meridal::test {

// Pages as disks send them, byte by byte as the published layouts have them.

struct TestAttribute {
    std::uint8_t attributeID = 0;
    std::uint16_t flags = 0;
    std::uint8_t current = 100;
    std::uint8_t worst = 100;
    std::uint64_t raw = 0; ///< with the reserved byte on top
    std::uint8_t threshold = 0;
};

inline void putLittle(SMARTPage& page, std::size_t offset, std::uint64_t value, std::size_t size)
{
    for (std::size_t byte = 0; byte < size; ++byte) {
        page[offset + byte] = static_cast<std::uint8_t>(value >> (8 * byte));
    }
}

/// Makes the bytes add up to 0.
inline SMARTPage summed(SMARTPage page)
{
    page[511] = 0;
    page[511] = static_cast<std::uint8_t>(0U - (std::accumulate(page.begin(), page.end(), 0U) & 0xFFU));
    return page;
}

inline SMARTPage dataPage(const std::vector<TestAttribute>& attributes)
{
    SMARTPage page{};
    putLittle(page, 0, 16, 2);
    std::size_t offset = 2;
    for (const TestAttribute& attribute : attributes) {
        page[offset] = attribute.attributeID;
        putLittle(page, offset + 1, attribute.flags, 2);
        page[offset + 3] = attribute.current;
        page[offset + 4] = attribute.worst;
        putLittle(page, offset + 5, attribute.raw, 7);
        offset += 12;
    }
    return summed(page);
}

inline SMARTPage thresholdPage(const std::vector<TestAttribute>& attributes)
{
    SMARTPage page{};
    putLittle(page, 0, 16, 2);
    std::size_t offset = 2;
    for (const TestAttribute& attribute : attributes) {
        page[offset] = attribute.attributeID;
        page[offset + 1] = attribute.threshold;
        offset += 12;
    }
    return summed(page);
}

/// Two characters a word, the first one in the high byte.
inline void putATAText(SMARTPage& page, std::size_t offset, std::size_t size, std::string_view text)
{
    std::string padded(text);
    padded.resize(size, ' ');
    for (std::size_t place = 0; place < size; ++place) {
        page[offset + (place ^ 1U)] = static_cast<std::uint8_t>(padded[place]);
    }
}

struct TestIdentity {
    std::string serial = "WD-WX11A2345678";
    std::string firmware = "01.01A01";
    std::string model = "WDC WD40EFRX-68N32N0";
    bool smartSupported = true;
    bool smartEnabled = true;
    std::uint16_t rotation = 5400;
    std::uint16_t versions = 0x03FC; ///< up to ACS-2
    std::uint32_t sectorSize = 512;
};

inline SMARTPage identifyPage(const TestIdentity& identity)
{
    SMARTPage page{};
    putATAText(page, 20, 20, identity.serial);
    putATAText(page, 46, 8, identity.firmware);
    putATAText(page, 54, 40, identity.model);
    putLittle(page, 164, identity.smartSupported ? 1 : 0, 2);
    putLittle(page, 166, 0x4000, 2);
    putLittle(page, 170, identity.smartEnabled ? 1 : 0, 2);
    putLittle(page, 160, identity.versions, 2);
    putLittle(page, 174, 0x4000, 2);
    putLittle(page, 212, identity.sectorSize > 512 ? 0x5000 : 0x4000, 2);
    putLittle(page, 234, identity.sectorSize / 2, 4);
    putLittle(page, 434, identity.rotation, 2);
    page[510] = 0xA5;
    return summed(page);
}

struct TestHealth {
    std::uint8_t warning = 0;
    std::uint16_t kelvin = 273 + 41;
    std::uint8_t spare = 100;
    std::uint8_t used = 3;
    std::uint64_t hours = 1234;
    std::uint64_t mediaErrors = 0;
};

inline SMARTPage healthPage(const TestHealth& health)
{
    SMARTPage page{};
    page[0] = health.warning;
    putLittle(page, 1, health.kelvin, 2);
    page[3] = health.spare;
    page[4] = 10;
    page[5] = health.used;
    putLittle(page, 32, 2'000'000, 8);
    putLittle(page, 48, 1'000'000, 8);
    putLittle(page, 64, 4'000, 8);
    putLittle(page, 80, 5'000, 8);
    putLittle(page, 96, 60, 8);
    putLittle(page, 112, 321, 8);
    putLittle(page, 128, health.hours, 8);
    putLittle(page, 144, 7, 8);
    putLittle(page, 160, health.mediaErrors, 8);
    putLittle(page, 192, 7, 4);
    putLittle(page, 196, 1, 4);
    putLittle(page, 200, 273 + 39, 2);
    return page;
}

inline SMARTPage controllerPage(std::string_view serial, std::string_view model, std::string_view firmware)
{
    SMARTPage page{};
    const auto put = [&page](std::size_t offset, std::size_t size, std::string_view text) {
        std::string padded(text);
        padded.resize(size, ' ');
        std::copy(padded.begin(), padded.end(), page.begin() + static_cast<std::ptrdiff_t>(offset));
    };
    put(4, 20, serial);
    put(24, 40, model);
    put(64, 8, firmware);
    return page;
}

/// What a healthy disk has.
inline std::vector<TestAttribute> usualAttributes()
{
    return {{.attributeID = 1, .flags = 0x2F, .current = 200, .worst = 200, .threshold = 51},
        {.attributeID = 5, .flags = 0x33, .current = 200, .worst = 200, .threshold = 140},
        {.attributeID = 9, .flags = 0x32, .current = 90, .worst = 90, .raw = 7300},
        {.attributeID = 12, .flags = 0x32, .raw = 55},
        {.attributeID = 194, .flags = 0x22, .current = 116, .worst = 98, .raw = 0x0012'0000'0022},
        {.attributeID = 197, .flags = 0x32, .current = 200, .worst = 200}};
}

} // namespace meridal::test
