// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/PacketTap.h"

#include <cstdint>
#include <optional>

namespace meridal {

/// What a frame is to its flow.
enum class FramePorts : std::uint8_t {
    None,          ///< no transport with ports
    There,         ///< in this frame
    FirstFragment, ///< there, and also true of the fragments with the same `fragment` that follow
    LaterFragment, ///< those of the first fragment
};

/// What is read off the headers of one frame.
struct DecodedFrame {
    FrameDirection direction = FrameDirection::Unknown;
    FramePorts ports = FramePorts::None;
    bool isTagged = false; ///< the tap told `pid` and direction
    bool isIP = false;
    bool isIPv6 = false;
    bool isLoopback = false;
    std::uint8_t protocol = 0;   ///< of the transport: 6 TCP, 17 UDP; the outermost one of a tunnel
    std::uint16_t vlan = 0;      ///< id of the outermost VLAN tag; 0 = none
    std::int32_t pid = 0;        ///< the process that the tap named; 0 when it named none
    std::uint32_t interface = 0; ///< the kernel's number of it; 0 = not told
    std::uint32_t bytes = 0;     ///< for people: IP length where there is one, else the frame's
    std::uint32_t linkBytes = 0; ///< as interfaces count them: the frame with its link header
    std::uint32_t fragment = 0;  ///< identification, of fragments
    std::uint16_t sourcePort = 0;
    std::uint16_t destinationPort = 0;
    std::array<std::uint8_t, 6> destinationHardware = {}; ///< Ethernet only
    std::array<std::uint8_t, 16> source = {};             ///< IP address; 4 bytes for IPv4
    std::array<std::uint8_t, 16> destination = {};
};

/// Reads the headers of a frame, however it is cut. Absent for what is not to be counted: frames for other machines that a
/// promiscuous interface showed, frames without a whole link header.
///
/// Tunnels stay closed: what they carry crosses an interface of its own, where it is counted, and here it is the
/// tunnel's. IPv6 lengths are those of the payload, IPv4 lengths of the packet, as each header says.
std::optional<DecodedFrame> decodeFrame(const CapturedFrame& frame);

} // namespace meridal
