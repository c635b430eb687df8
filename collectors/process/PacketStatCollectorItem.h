// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Result.h"
#include "collectors/process/TrafficBatch.h"
#include "platform/host/PacketTap.h"

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace meridal {

struct Context;

/// An interface to listen on alone.
struct CaptureInterface {
    std::string bsd; ///< its name
    std::string mac; ///< hardware address, "aa:bb:cc:dd:ee:ff" in any case
    std::optional<std::array<std::uint8_t, 16>> ipv4 = std::nullopt; ///< its own addresses; 4 bytes of it
    std::optional<std::array<std::uint8_t, 16>> ipv6 = std::nullopt;
};

/// One running capture. Frames are counted on the capture's own thread and fetched in one go; between two fetches what
/// waits is bounded by the number of processes. Main queue only.
class PacketStatCollectorItem {
public:
    explicit PacketStatCollectorItem(Context& context);
    ~PacketStatCollectorItem();
    PacketStatCollectorItem(const PacketStatCollectorItem&) = delete;
    PacketStatCollectorItem& operator=(const PacketStatCollectorItem&) = delete;

    /// All interfaces, each frame counted for its process. A failure is logged.
    Result<void> startCaputure();
    /// One interface, each frame counted for its pair of ports, the local one first. Negative when it failed.
    int startCaputureWithInterface(const CaptureInterface& interface);
    /// Frames from now on are not counted. The batch that is being counted can be fetched a moment later.
    void stop();

    bool finished() const; ///< told to end, or ended by itself
    /// Why it ended by itself; empty while it has not.
    std::string failure() const;
    CaptureStatistics statistics() const;
    /// Adds what was counted since the last call, and starts over.
    void take(TrafficBatch& into);

private:
    class Inbox;
    class ProcessSink;
    class PortSink;

    Context& context_;
    std::shared_ptr<Inbox> inbox_;
    std::unique_ptr<PacketTap::Capture> capture_;
    CaptureStatistics last_; ///< of the capture that was stopped
    bool finished_ = false;
};

/// Six bytes of a hardware address as text, one or two hexadecimal digits each; absent when it is none.
std::optional<std::array<std::uint8_t, 6>> hardwareAddressFrom(const std::string& text);

} // namespace meridal
