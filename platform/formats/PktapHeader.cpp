// SPDX-License-Identifier: Apache-2.0
#include "platform/formats/PktapHeader.h"

#include <algorithm>
#include <bit>
#include <cstddef>

namespace meridal {

namespace {

/// Fields are in the machine's byte order, which is little-endian on all that have the tap.
std::uint32_t pktapField(std::span<const std::uint8_t> bytes, std::size_t at)
{
    return bytes[at] | std::uint32_t{bytes[at + 1]} << 8 | std::uint32_t{bytes[at + 2]} << 16
        | std::uint32_t{bytes[at + 3]} << 24;
}

} // namespace

std::optional<CapturedFrame> frameBehindPktap(std::span<const std::uint8_t> bytes, std::uint32_t length)
{
    constexpr std::size_t wanted = 56;
    constexpr std::uint32_t nothing = 0;
    constexpr std::uint32_t dropRecord = 2;
    constexpr std::uint32_t ethernet = 1;
    constexpr std::uint32_t directions = 3;
    constexpr std::uint32_t outgoing = 2;
    if (bytes.size() < wanted) {
        return std::nullopt;
    }
    const std::uint32_t header = pktapField(bytes, 0); // its end moved with releases
    const std::uint32_t next = pktapField(bytes, 4);
    if (header < wanted || header > length || next == nothing || next == dropRecord) {
        return std::nullopt;
    }
    const bool isSent = (pktapField(bytes, 36) & directions) == outgoing;
    return CapturedFrame{.link = pktapField(bytes, 8) == ethernet ? LinkType::Ethernet : LinkType::Other,
        .bytes = bytes.subspan(std::min<std::size_t>(header, bytes.size())),
        .length = length - header,
        .tag = FrameTag{.pid = std::max(std::bit_cast<std::int32_t>(pktapField(bytes, 52)), 0),
            .direction = isSent ? FrameDirection::Sent : FrameDirection::Received}};
}

} // namespace meridal
