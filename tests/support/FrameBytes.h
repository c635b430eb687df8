// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/PacketTap.h"

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace meridal::test {

using Frame = std::vector<std::uint8_t>;

/// Bytes written as pairs of hexadecimal digits; blanks do not count.
inline Frame hex(std::string_view digits)
{
    Frame bytes;
    std::string pair;
    for (const char digit : digits) {
        if (digit != ' ') {
            pair += digit;
        }
        if (pair.size() == 2) {
            bytes.push_back(static_cast<std::uint8_t>(std::stoi(pair, nullptr, 16)));
            pair.clear();
        }
    }
    return bytes;
}

inline Frame joined(std::initializer_list<Frame> parts)
{
    Frame all;
    for (const Frame& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

inline Frame big16(unsigned value) { return {static_cast<std::uint8_t>(value >> 8), static_cast<std::uint8_t>(value)}; }

inline Frame little32(std::uint32_t value)
{
    return {static_cast<std::uint8_t>(value), static_cast<std::uint8_t>(value >> 8),
        static_cast<std::uint8_t>(value >> 16), static_cast<std::uint8_t>(value >> 24)};
}

/// 10.0.0.1 to 10.0.0.2.
inline Frame ipv4(std::uint8_t protocol, unsigned totalLength, unsigned fragment = 0)
{
    return joined({hex("4500"), big16(totalLength), hex("1234"), big16(fragment), hex("40"), {protocol}, hex("0000"),
        hex("0a000001 0a000002")});
}

/// fd00::1 to fd00::2.
inline Frame ipv6(std::uint8_t next, unsigned payloadLength)
{
    return joined({hex("60000000"), big16(payloadLength), {next}, hex("40"), hex("fd000000000000000000000000000001"),
        hex("fd000000000000000000000000000002")});
}

/// From 5000 to 80.
inline Frame ports() { return hex("1388 0050 00000000"); }

inline Frame ethernet(unsigned etherType, const Frame& payload)
{
    return joined({hex("020000000002 020000000001"), big16(etherType), payload});
}

/// Linux's newer cooked header: type 4 is outgoing, 0 received.
inline Frame cooked2(unsigned etherType, std::uint8_t packetType, const Frame& payload, std::uint8_t interface = 7)
{
    return joined({big16(etherType), hex("0000 000000"), {interface}, hex("0001"), {packetType},
        hex("06 0200000000010000"), payload});
}

/// A frame of so many bytes at the IP layer, as a tap that names the process gives it.
struct TappedFrame {
    operator CapturedFrame() const { return {LinkType::Ethernet, bytes, 1844, tag}; }
    Frame bytes;
    FrameTag tag;
};
inline TappedFrame tapped(std::int32_t pid, FrameDirection direction, unsigned bytes)
{
    return {ethernet(0x0800, joined({ipv4(6, bytes), ports()})), {pid, direction}};
}

inline CapturedFrame captured(LinkType link, const Frame& bytes, std::size_t wireLength = 0)
{
    return {link, bytes, static_cast<std::uint32_t>(wireLength > 0 ? wireLength : bytes.size())};
}

} // namespace meridal::test
