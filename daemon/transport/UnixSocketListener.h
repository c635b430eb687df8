// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Result.h"
#include "base/Runtime.h"
#include "wire/Link.h"

#include <filesystem>
#include <memory>

namespace meridal {

/// Serves DaemonProtocol, and a second interface of named methods, as JSON-RPC over a Unix stream socket
/// (docs/protocol.md).
///
/// All sockets are served by one thread of the listener's own. The daemon's measuring runs on its main queue; were
/// clients served there too, a few that flood it would delay everybody's figures. So only what a client's request posts
/// itself reaches the main queue, at most one request a client at a time, and the rest of the load stays on this thread,
/// where connections take turns line by line.
class UnixSocketListener final : public Listener {
public:
    /// Binds and begins to accept. The folder is made when missing (0755); a socket file that is there is taken to be a
    /// dead daemon's and replaced, so the caller must hold the instance lock. Everyone on the machine may connect. The
    /// delegate, the named methods (may be null) and the queue outlive the listener.
    static Result<std::unique_ptr<UnixSocketListener>> listen(
        const std::filesystem::path& path, ListenerDelegate& delegate, NamedMethods* namedMethods, Queue& mainQueue);

    /// Begins to accept at a socket that listens already and that somebody else keeps, such as a service manager: who
    /// connects between two daemons waits for the second. The descriptor is the listener's from here on, also when this
    /// fails; its socket file stays at the end.
    static Result<std::unique_ptr<UnixSocketListener>> adopt(
        int descriptor, ListenerDelegate& delegate, NamedMethods* namedMethods, Queue& mainQueue);

    /// Ends every connection, removes the socket file that it made and waits for the thread. Replies and envelopes that come later
    /// are dropped. Not from within a call that a client made.
    ~UnixSocketListener() override;

    void stopAccepting() override;
    ListenerStatistics statistics() const override;
    /// How often an envelope was turned into text: once each, however many clients took it.
    std::uint64_t envelopesEncoded() const;

private:
    class Server;
    explicit UnixSocketListener(std::unique_ptr<Server> server);

    std::unique_ptr<Server> server_;
};

} // namespace meridal
