// SPDX-License-Identifier: Apache-2.0
#include "platform/formats/InterfaceAddresses.h"

#include <algorithm>
#include <bit>
#include <cstddef>

namespace meridal {

namespace {

using AddressBytes = std::span<const std::uint8_t>;

/// As much of a field as is there.
AddressBytes fieldOf(AddressBytes bytes, std::size_t offset, std::size_t size)
{
    const AddressBytes rest = bytes.subspan(std::min(offset, bytes.size()));
    return rest.first(std::min(size, rest.size()));
}

std::uint8_t octetOf(AddressBytes bytes, std::size_t offset) { return offset < bytes.size() ? bytes[offset] : 0; }

} // namespace

std::optional<InterfaceAddress> interfaceAddressOf(AddressBytes address, AddressBytes netmask)
{
    constexpr std::uint8_t familyIPv4 = 2;
    constexpr std::uint8_t familyIPv6 = 30;
    const std::uint8_t family = octetOf(address, 1);
    if (family != familyIPv4 && family != familyIPv6) {
        return std::nullopt;
    }
    InterfaceAddress found;
    found.family = family == familyIPv4 ? InterfaceAddress::Family::IPv4 : InterfaceAddress::Family::IPv6;
    const std::size_t offset = family == familyIPv4 ? 4 : 8;
    const AddressBytes bytes = fieldOf(address, offset, found.size());
    std::copy(bytes.begin(), bytes.end(), found.bytes.begin());
    if (family == familyIPv6 && found.bytes[0] == 0xfe && (found.bytes[1] & 0xc0) == 0x80) {
        found.bytes[2] = found.bytes[3] = 0; // where the kernel keeps the scope of a link-local one
    }
    int bits = 0;
    for (const std::uint8_t octet : fieldOf(netmask, offset, found.size())) { // without the zeros at its end
        bits += std::popcount(octet);
    }
    found.prefixLength = static_cast<std::uint8_t>(bits);
    return found;
}

LinkAddress linkAddressOf(AddressBytes address)
{
    constexpr std::uint8_t loopbackType = 0x18;
    constexpr std::size_t data = 8;                                           // the name, then the address
    LinkAddress link{.index = octetOf(address, 2) | octetOf(address, 3) << 8, // Macs are little-endian
        .isLoopback = octetOf(address, 4) == loopbackType};
    HardwareAddress hardware{};
    const AddressBytes bytes = fieldOf(address, data + octetOf(address, 5), octetOf(address, 6));
    if (octetOf(address, 6) == hardware.size() && bytes.size() == hardware.size()) {
        std::copy(bytes.begin(), bytes.end(), hardware.begin());
        link.hardware = hardware;
    }
    return link;
}

} // namespace meridal
