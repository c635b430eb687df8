// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "wire/Link.h"

#include <atomic>
#include <cstdint>

namespace meridal {

/// The figures behind ListenerStatistics while listener and connections count on their own threads.
struct XPCCounters {
    std::atomic<std::uint64_t> openConnections{0};
    std::atomic<std::uint64_t> acceptedConnections{0};
    std::atomic<std::uint64_t> requests{0};
    std::atomic<std::uint64_t> badRequests{0};
    std::atomic<std::uint64_t> envelopesSent{0};
    std::atomic<std::uint64_t> envelopesDropped{0};

    ListenerStatistics read() const
    {
        return {.openConnections = openConnections,
            .acceptedConnections = acceptedConnections,
            .requests = requests,
            .badRequests = badRequests,
            .envelopesSent = envelopesSent,
            .envelopesDropped = envelopesDropped};
    }
};

} // namespace meridal
