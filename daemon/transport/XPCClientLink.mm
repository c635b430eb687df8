// SPDX-License-Identifier: Apache-2.0
#include "daemon/transport/XPCClientLink.h"

#include "daemon/transport/XPCProtocols.h"
#include "daemon/transport/XPCValues.h"

#include <utility>
#include <vector>

namespace meridal {

namespace {

/// From the system's record of the sender, never by pid: another program may have taken the pid since.
Peer peerOf(NSXPCConnection* connection)
{
    return {.uid = connection.effectiveUserIdentifier, .gid = connection.effectiveGroupIdentifier, .known = true};
}

std::shared_ptr<const void> encode(const Envelope& envelope)
{
    id object = objectFromValue(envelope.dictionary());
    NSDictionary* encoded = [object isKindOfClass:NSDictionary.class] ? object : @{};
    return {CFBridgingRetain(encoded), [](const void* reference) { CFRelease(reference); }};
}

} // namespace

XPCClientLink::XPCClientLink(NSXPCConnection* connection, std::shared_ptr<XPCCounters> counters)
    : peer_(peerOf(connection)), counters_(std::move(counters)), connection_(connection)
{
}

void XPCClientLink::daemonResponse(const EnvelopePtr& envelope)
{
    {
        const std::lock_guard lock(mutex_);
        if (!connection_) {
            return;
        }
        if (backlog_.put(envelope)) {
            ++counters_->envelopesDropped;
        }
        if (std::exchange(sending_, true)) {
            return;
        }
    }
    sendBatch();
}

void XPCClientLink::sendBatch()
{
    NSXPCConnection* connection = nil;
    std::vector<EnvelopePtr> batch;
    {
        const std::lock_guard lock(mutex_);
        if (!connection_ || backlog_.empty()) {
            sending_ = false;
            return;
        }
        connection = connection_;
        batch = backlog_.takeAll();
    }
    @autoreleasepool {
        id<ClientProtocol> client = connection.remoteObjectProxy;
        for (const EnvelopePtr& envelope : batch) {
            [client daemonResponse:(__bridge NSDictionary*)envelope->encoded(encode).get()];
        }
    }
    counters_->envelopesSent += batch.size();
    const std::weak_ptr<XPCClientLink> weakSelf = weak_from_this();
    [connection scheduleSendBarrierBlock:^{
        if (const auto self = weakSelf.lock()) {
            self->sendBatch();
        }
    }];
}

void XPCClientLink::close()
{
    const std::lock_guard lock(mutex_);
    connection_ = nil;
    backlog_.takeAll();
}

} // namespace meridal
