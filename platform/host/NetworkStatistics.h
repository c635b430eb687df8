#pragma once

#include "base/Result.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <span>

namespace meridal {

/// The kernel's account of every connection, spoken to in messages (platform/NetworkStatisticsMessages.h). Main queue
/// only.
/// macOS: the kernel control "com.apple.network.statistics". Linux: the same messages, answered from sock_diag.
class NetworkStatistics {
public:
    /// One message or several in a row. May be called from within write() or later.
    using Received = std::function<void(std::span<const std::uint8_t> messages)>;

    /// Destroying it closes it; nothing is received after that.
    class Channel {
    public:
        virtual ~Channel() = default;
        /// Sends one request. False when it could not be sent.
        virtual bool write(std::span<const std::uint8_t> request) = 0;
    };

    virtual ~NetworkStatistics() = default;
    virtual Result<std::unique_ptr<Channel>> open(Received received) = 0;
};

} // namespace meridal
