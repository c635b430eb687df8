// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Result.h"

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

namespace meridal {

/// How a captured frame begins.
enum class LinkType : std::uint8_t {
    Ethernet,
    LinuxCooked,  ///< 16 bytes that Linux puts in front of frames of any interface
    LinuxCooked2, ///< 20 bytes, which name the interface too
    RawIP,        ///< nothing in front of the IP header
    Null,         ///< 4 bytes with the address family, in either byte order: BSD loopback and tunnels
    Other,        ///< counts, and is not looked into
};

enum class FrameDirection : std::uint8_t {
    Unknown, ///< the link does not tell
    Received,
    Sent,
};

/// Whose a frame is, where the tap knows.
struct FrameTag {
    std::int32_t pid = 0; ///< 0 = no process's
    FrameDirection direction = FrameDirection::Unknown;
};

/// One frame as it was captured.
struct CapturedFrame {
    LinkType link = LinkType::Ethernet;
    std::span<const std::uint8_t> bytes; ///< the beginning of it; valid during the call only
    std::uint32_t length = 0;            ///< bytes that the whole frame has
    std::optional<FrameTag> tag = std::nullopt;
};

/// What a capture did since it began.
struct CaptureStatistics {
    std::uint64_t frames = 0;  ///< handed over
    std::uint64_t dropped = 0; ///< lost for want of room before they could be handed over
};

/// One end-to-end flow of frames, seen from this machine. Addresses of IPv4 have 4 bytes and the rest 0.
struct SocketFlow {
    std::array<std::uint8_t, 16> local = {};
    std::array<std::uint8_t, 16> foreign = {};
    std::uint32_t interface = 0; ///< the kernel's number of it; 0 = not told
    std::uint16_t localPort = 0;
    std::uint16_t foreignPort = 0;
    std::uint8_t protocol = 0; ///< as in the IP header: 6 TCP, 17 UDP
    bool isIPv6 = false;
    bool operator==(const SocketFlow&) const = default;
};

/// Who has a flow.
struct SocketOwner {
    enum class Kind : std::uint8_t {
        Process,
        Kernel,    ///< a socket of the kernel's own, or none of a process any more
        Pending,   ///< there is a socket, and its process is still being looked for: ask again later
        Elsewhere, ///< the same frames cross another interface, on top of this one, and count there
        None,      ///< no socket of this machine
    };
    Kind kind = Kind::None;
    std::int32_t pid = 0;  ///< of a process only
    bool isCertain = true; ///< false for who listens, and may hand the connection to somebody else
    bool operator==(const SocketOwner&) const = default;
};

/// Finds the processes behind flows, for taps that do not name them. Used on one thread, that of the capture.
/// Linux: sock_diag and /proc/PID/fd.
class SocketOwners {
public:
    virtual ~SocketOwners() = default;
    /// Once a batch of frames, before the first question: what may be spent on answers is spent by batch.
    virtual void beginBatch() = 0;
    /// A flow without ports is nobody's but the kernel's, unless it counts elsewhere.
    virtual SocketOwner ownerOf(const SocketFlow& flow) = 0;
    /// Looks for the processes of what was answered with Pending since the last call. True when some were found.
    virtual bool search() = 0;
};

/// Copies of the headers of all frames that cross this machine's interfaces. Main queue only, but for the sink.
/// macOS: libpcap in the mode that names processes. Linux: libpcap on "any".
class PacketTap {
public:
    /// Takes frames in batches, on one thread at a time that is not the main one.
    class Sink {
    public:
        virtual ~Sink() = default;
        virtual void frame(const CapturedFrame& frame) = 0;
        /// So many frames of the batch that ends next never came: there was no room for them.
        virtual void lost(std::uint64_t frames) = 0;
        virtual void endBatch() = 0;
        /// The capture has ended by itself.
        virtual void failed(const std::string& why) = 0;
    };
    /// Destroying it ends the capture; a batch that is being handed over is finished meanwhile.
    class Capture {
    public:
        virtual ~Capture() = default;
        virtual CaptureStatistics statistics() const = 0;
    };

    virtual ~PacketTap() = default;
    /// Every interface that is there.
    virtual Result<std::unique_ptr<Capture>> captureAll(std::shared_ptr<Sink> sink) = 0;
    /// One interface by its name. Ethernet only.
    virtual Result<std::unique_ptr<Capture>> captureInterface(const std::string& name, std::shared_ptr<Sink> sink) = 0;
    /// Whether a running capture also sees interfaces that come later. Otherwise a new one is needed.
    virtual bool followsInterfaces() const = 0;
    /// Null where the frames name their process themselves.
    virtual std::unique_ptr<SocketOwners> makeOwners() = 0;
};

} // namespace meridal
