// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/PacketTap.h"

#include <cstdint>
#include <optional>
#include <span>

namespace meridal {

/// The frame behind the header that macOS's tap puts in front of it (struct pktap_header), with the process and the
/// direction that the header names. `length` is that of both on the wire. Absent for what is no frame. Frames other than
/// Ethernet's are not told apart.
std::optional<CapturedFrame> frameBehindPktap(std::span<const std::uint8_t> bytes, std::uint32_t length);

} // namespace meridal
