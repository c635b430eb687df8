// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Log.h"
#include "daemon/transport/XPCCounters.h"
#include "daemon/transport/XPCProtocols.h"
#include "wire/Link.h"

#include <memory>

/// What a client's messages arrive at: turns arguments into values, hands them to the daemon's own object, and turns its
/// replies back. Arguments of another class than declared count as empty; a message without the reply block that its
/// method needs is ignored.
@interface MRDXPCExportedObject : NSObject <DaemonProtocol>

/// The log outlives the object. The uid names the client in the log.
- (instancetype)initWithConnection:(std::shared_ptr<meridal::ExportedConnection>)connection
                          counters:(std::shared_ptr<meridal::XPCCounters>)counters
                               log:(meridal::Log&)log
                               uid:(std::uint32_t)uid NS_DESIGNATED_INITIALIZER;
- (instancetype)init NS_UNAVAILABLE;

/// Tells the daemon's object that its client is gone and lets go of it. Only the first call does anything.
- (void)end;

@end
