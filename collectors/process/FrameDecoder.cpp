// SPDX-License-Identifier: Apache-2.0
#include "collectors/process/FrameDecoder.h"

#include <algorithm>
#include <cstddef>
#include <span>

namespace meridal {

namespace {

using FrameBytes = std::span<const std::uint8_t>;

constexpr std::size_t ethernetHeader = 14;
constexpr std::uint16_t etherTypeIPv4 = 0x0800;
constexpr std::uint16_t etherTypeIPv6 = 0x86DD;
constexpr std::uint8_t protocolFragment = 44;
constexpr std::uint8_t protocolAuthentication = 51;

/// One header after another. Whoever reads past the captured bytes gets nothing.
class Reader {
public:
    Reader(FrameBytes bytes, std::uint32_t length) : bytes_(bytes), length_(length) { }

    bool has(std::size_t count) const { return bytes_.size() >= count; }
    std::uint8_t u8(std::size_t at) const { return bytes_[at]; }
    std::uint16_t u16(std::size_t at) const { return static_cast<std::uint16_t>(bytes_[at] << 8 | bytes_[at + 1]); }
    std::uint32_t u32(std::size_t at) const { return std::uint32_t{u16(at)} << 16 | u16(at + 2); }
    std::uint32_t littleEndian32(std::size_t at) const
    {
        return u32(at) >> 24 | (u32(at) >> 8 & 0xFF00) | (u32(at) << 8 & 0xFF0000) | u32(at) << 24;
    }
    FrameBytes at(std::size_t place, std::size_t count) const { return bytes_.subspan(place, count); }
    /// What the rest of the frame has on the wire.
    std::uint32_t length() const { return length_; }
    void skip(std::size_t count)
    {
        bytes_ = bytes_.subspan(std::min(count, bytes_.size()));
        length_ -= std::min(static_cast<std::uint32_t>(count), length_);
    }

private:
    FrameBytes bytes_;
    std::uint32_t length_;
};

void copy(FrameBytes from, std::uint8_t* to) { std::copy(from.begin(), from.end(), to); }

bool hasPorts(std::uint8_t protocol)
{
    constexpr std::uint8_t tcp = 6;
    constexpr std::uint8_t udp = 17;
    constexpr std::uint8_t dccp = 33;
    constexpr std::uint8_t sctp = 132;
    constexpr std::uint8_t udpLite = 136;
    return protocol == tcp || protocol == udp || protocol == dccp || protocol == sctp || protocol == udpLite;
}

void readPorts(const Reader& reader, DecodedFrame& frame)
{
    if (hasPorts(frame.protocol) && frame.ports == FramePorts::LaterFragment) {
        return;
    }
    if (!hasPorts(frame.protocol) || !reader.has(4)) {
        frame.ports = FramePorts::None;
        return;
    }
    frame.sourcePort = reader.u16(0);
    frame.destinationPort = reader.u16(2);
    frame.ports = frame.ports == FramePorts::FirstFragment ? FramePorts::FirstFragment : FramePorts::There;
}

/// A fragment header stands in front of the same transport, whose ports only the first fragment has.
void noteFragment(bool isFirst, std::uint32_t identification, DecodedFrame& frame)
{
    frame.ports = isFirst ? FramePorts::FirstFragment : FramePorts::LaterFragment;
    frame.fragment = identification;
}

/// Walks what may stand between an IP header and the transport. False when it leads out of the frame or goes on for ever.
bool skipExtensions(Reader& reader, DecodedFrame& frame)
{
    constexpr int mostExtensions = 10; // the standard knows eight kinds; senders that chain more hide something
    for (int count = 0; count < mostExtensions; ++count) {
        const std::uint8_t kind = frame.protocol;
        const bool isOptions =
            frame.isIPv6 && (kind == 0 || kind == 43 || kind == 60 || kind == 135 || kind == 139 || kind == 140);
        if (!isOptions && kind != protocolFragment && kind != protocolAuthentication) {
            return true;
        }
        if (kind == protocolFragment && !frame.isIPv6) {
            return true;
        }
        if (!reader.has(8)) {
            return false;
        }
        std::size_t size = 8;
        if (kind == protocolFragment) {
            const std::uint16_t offset = reader.u16(2);
            if ((offset & 0xFFF9) != 0) { // else a fragment that is the whole
                noteFragment((offset & 0xFFF8) == 0, reader.u32(4), frame);
            }
        } else if (kind == protocolAuthentication) {
            size = (std::size_t{reader.u8(1)} + 2) * 4;
        } else {
            size = (std::size_t{reader.u8(1)} + 1) * 8;
        }
        frame.protocol = reader.u8(0);
        reader.skip(size);
        if (frame.ports == FramePorts::LaterFragment) {
            return true; // what follows is the middle of something
        }
    }
    return false;
}

void readTransport(Reader reader, DecodedFrame& frame)
{
    if (skipExtensions(reader, frame)) {
        readPorts(reader, frame);
    } else {
        frame.ports = FramePorts::None;
    }
}

void readIPv4(Reader reader, DecodedFrame& frame)
{
    constexpr std::size_t shortest = 20;
    if (!reader.has(shortest) || reader.u8(0) >> 4 != 4) {
        return;
    }
    const std::size_t header = (reader.u8(0) & 0x0FU) * std::size_t{4};
    const std::uint32_t total = reader.u16(2);
    if (header < shortest) {
        return;
    }
    frame.isIP = true;
    // 0 is what the kernel writes into packets that the hardware will cut up, and into those above 64 KiB.
    frame.bytes = total == 0 ? reader.length() : std::min(total, reader.length());
    frame.protocol = reader.u8(9);
    copy(reader.at(12, 4), frame.source.data());
    copy(reader.at(16, 4), frame.destination.data());
    const std::uint16_t offset = reader.u16(6);
    if ((offset & 0x3FFF) != 0) {
        noteFragment((offset & 0x1FFF) == 0, reader.u16(4), frame);
    }
    if (!reader.has(header)) {
        frame.ports = FramePorts::None;
        return;
    }
    reader.skip(header);
    readTransport(reader, frame);
}

void readIPv6(Reader reader, DecodedFrame& frame)
{
    constexpr std::size_t header = 40;
    if (!reader.has(header) || reader.u8(0) >> 4 != 6) {
        return;
    }
    const std::uint32_t payload = reader.u16(4);
    const std::uint32_t rest = reader.length() - std::min<std::uint32_t>(header, reader.length());
    frame.isIP = true;
    frame.isIPv6 = true;
    frame.bytes = payload == 0 ? rest : std::min(payload, rest);
    frame.protocol = reader.u8(6);
    copy(reader.at(8, 16), frame.source.data());
    copy(reader.at(24, 16), frame.destination.data());
    reader.skip(header);
    readTransport(reader, frame);
}

void readNetwork(std::uint16_t etherType, Reader reader, DecodedFrame& frame)
{
    if (etherType == etherTypeIPv4) {
        readIPv4(reader, frame);
    } else if (etherType == etherTypeIPv6) {
        readIPv6(reader, frame);
    }
}

bool isVlanTag(std::uint16_t etherType) { return etherType == 0x8100 || etherType == 0x88A8 || etherType == 0x9100; }

/// `etherType` and what follows it, tags included.
void readTagged(std::uint16_t etherType, Reader reader, DecodedFrame& frame)
{
    constexpr int mostTags = 4;
    for (int tags = 0; tags < mostTags && isVlanTag(etherType); ++tags) {
        if (!reader.has(4)) {
            return;
        }
        const auto id = static_cast<std::uint16_t>(reader.u16(0) & 0x0FFF);
        frame.vlan = frame.vlan == 0 ? id : frame.vlan;
        etherType = reader.u16(2);
        reader.skip(4);
    }
    readNetwork(etherType, reader, frame);
}

/// Whether a packet of this type begins so many bytes on, and has the length that the frame leaves it.
enum class Fit : std::uint8_t { None, Possible, Exact };

Fit fitOf(std::uint16_t etherType, Reader reader, std::size_t skipped)
{
    const bool isIPv6 = etherType == etherTypeIPv6;
    const std::uint32_t header = isIPv6 ? 40 : 0; // is not in the length that IPv6 tells
    reader.skip(skipped);
    if (!reader.has(6) || reader.u8(0) >> 4 != (isIPv6 ? 6 : 4)) {
        return Fit::None;
    }
    const std::uint32_t length = std::uint32_t{reader.u16(isIPv6 ? 4 : 2)} + header;
    return length == reader.length() ? Fit::Exact : length < reader.length() ? Fit::Possible : Fit::None;
}

/// Cooked headers of Linux tell the type of the packet within all tags. Those that were not taken out on arrival, all but the
/// outermost, stand between the two.
void readBehindTags(std::uint16_t etherType, Reader reader, DecodedFrame& frame)
{
    constexpr std::size_t tag = 4;
    if ((etherType == etherTypeIPv4 || etherType == etherTypeIPv6) && fitOf(etherType, reader, 0) != Fit::Exact) {
        std::size_t tags = 0;
        std::uint16_t next = 0;
        do {
            next = reader.has(tags + tag) ? reader.u16(tags + 2) : 0;
            tags += tag;
        } while (isVlanTag(next));
        const Fit fit = next == etherType ? fitOf(etherType, reader, tags) : Fit::None;
        if (fit == Fit::Exact || (fit == Fit::Possible && fitOf(etherType, reader, 0) == Fit::None)) {
            frame.vlan = static_cast<std::uint16_t>(reader.u16(0) & 0x0FFF);
            reader.skip(tags);
        }
    }
    readTagged(etherType, reader, frame);
}

bool readEthernet(Reader reader, DecodedFrame& frame)
{
    if (!reader.has(ethernetHeader)) {
        return false;
    }
    copy(reader.at(0, 6), frame.destinationHardware.data());
    const std::uint16_t etherType = reader.u16(12);
    reader.skip(ethernetHeader);
    readTagged(etherType, reader, frame);
    return true;
}

/// Takes the packet type of Linux's cooked headers. What is for another host, and passes a bridge, came in like the rest.
FrameDirection directionOf(std::uint16_t packetType)
{
    constexpr std::uint16_t outgoing = 4;
    return packetType == outgoing ? FrameDirection::Sent : FrameDirection::Received;
}

/// Cooked headers stand in place of the link's own, which interfaces count.
void readCookedLink(std::uint16_t hardware, std::uint32_t length, DecodedFrame& frame)
{
    constexpr std::uint16_t ethernet = 1;
    constexpr std::uint16_t loopback = 772;
    frame.isLoopback = hardware == loopback;
    frame.linkBytes = length + (hardware == ethernet ? std::uint32_t{ethernetHeader} : 0);
    frame.bytes = frame.linkBytes;
}

bool readCooked(Reader reader, DecodedFrame& frame)
{
    constexpr std::size_t header = 16;
    if (!reader.has(header)) {
        return false;
    }
    frame.direction = directionOf(reader.u16(0));
    const std::uint16_t hardware = reader.u16(2);
    const std::uint16_t etherType = reader.u16(14);
    reader.skip(header);
    readCookedLink(hardware, reader.length(), frame);
    readBehindTags(etherType, reader, frame);
    return true;
}

bool readCooked2(Reader reader, DecodedFrame& frame)
{
    constexpr std::size_t header = 20;
    if (!reader.has(header)) {
        return false;
    }
    frame.direction = directionOf(reader.u8(10));
    const std::uint16_t etherType = reader.u16(0);
    frame.interface = reader.u32(4);
    const std::uint16_t hardware = reader.u16(8);
    reader.skip(header);
    readCookedLink(hardware, reader.length(), frame);
    readBehindTags(etherType, reader, frame);
    return true;
}

bool readRaw(const Reader& reader, DecodedFrame& frame)
{
    if (!reader.has(1)) {
        return false;
    }
    const int version = reader.u8(0) >> 4;
    readNetwork(version == 4 ? etherTypeIPv4 : version == 6 ? etherTypeIPv6 : std::uint16_t{0}, reader, frame);
    return true;
}

bool readNull(Reader reader, DecodedFrame& frame)
{
    constexpr std::size_t header = 4;
    if (!reader.has(header)) {
        return false;
    }
    // Written in the byte order of the machine that captured; the families are small numbers. IPv6 differs by system.
    const std::uint32_t family = std::min(reader.u32(0), reader.littleEndian32(0));
    reader.skip(header);
    const bool isIPv6 = family == 30 || family == 28 || family == 24 || family == 10;
    readNetwork(family == 2 ? etherTypeIPv4 : isIPv6 ? etherTypeIPv6 : std::uint16_t{0}, reader, frame);
    return true;
}

} // namespace

std::optional<DecodedFrame> decodeFrame(const CapturedFrame& captured)
{
    const Reader reader(captured.bytes, captured.length);
    DecodedFrame frame;
    frame.linkBytes = captured.length;
    frame.bytes = captured.length;
    if (captured.tag) {
        frame.isTagged = true;
        frame.direction = captured.tag->direction;
        frame.pid = captured.tag->pid;
    }
    bool counts = false;
    switch (captured.link) {
    case LinkType::Ethernet:
        counts = readEthernet(reader, frame);
        break;
    case LinkType::LinuxCooked:
        counts = readCooked(reader, frame);
        break;
    case LinkType::LinuxCooked2:
        counts = readCooked2(reader, frame);
        break;
    case LinkType::RawIP:
        counts = readRaw(reader, frame);
        break;
    case LinkType::Null:
        counts = readNull(reader, frame);
        break;
    case LinkType::Other:
        counts = true;
        break;
    }
    counts = counts || frame.isTagged; // cut before the IP header, it keeps the frame's length
    return counts ? std::optional(frame) : std::nullopt;
}

} // namespace meridal
