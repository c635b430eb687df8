// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "daemon/transport/EnvelopeBacklog.h"
#include "daemon/transport/XPCCounters.h"
#include "wire/Link.h"

#import <Foundation/Foundation.h>

#include <memory>
#include <mutex>

namespace meridal {

/// The client's end of one NSXPCConnection. A proxy message returns before it is sent and XPC queues without a bound, so
/// envelopes go out in batches: the next batch follows when a send barrier says that the last one has left. What
/// comes meanwhile waits in a backlog that keeps the newest of each type. Thread-safe.
class XPCClientLink final : public ClientLink, public std::enable_shared_from_this<XPCClientLink> {
public:
    XPCClientLink(NSXPCConnection* connection, std::shared_ptr<XPCCounters> counters);

    const Peer& peer() const override { return peer_; }
    void daemonResponse(const EnvelopePtr& envelope) override;

    /// Lets go of the connection; envelopes are dropped from here on.
    void close();

private:
    void sendBatch();

    const Peer peer_;
    const std::shared_ptr<XPCCounters> counters_;
    std::mutex mutex_;            // guards what follows
    NSXPCConnection* connection_; // nil once closed
    EnvelopeBacklog backlog_;
    bool sending_ = false; // a batch is on its way, its barrier will see to the rest
};

} // namespace meridal
