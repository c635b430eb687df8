// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "wire/DaemonProtocol.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace meridal {

/// Who is at the other end, from the operating system, never from the client itself.
struct Peer {
    std::uint32_t uid = 0;
    std::uint32_t gid = 0;
    bool known = false; ///< false: the system did not say; then the peer may measure and nothing more
    std::vector<std::uint32_t> groups = {}; ///< those besides gid; empty where the system does not tell (macOS)

    /// Absent where the system did not say.
    std::optional<std::uint32_t> user() const { return known ? std::optional(uid) : std::nullopt; }
    bool isRoot() const { return user() == 0U; }
};

/// One client as its transport sees it.
class ClientLink : public ClientProtocol {
public:
    virtual const Peer& peer() const = 0;
};

/// Who calls a named method.
struct Caller {
    Caller(const Peer& who = {}, std::weak_ptr<ClientLink> way = {}) : peer(who), link(std::move(way)) { }

    Peer peer;
    std::weak_ptr<ClientLink> link; ///< the way to tell it more later: gone with its connection, and none for some
};

/// The daemon's side of one client: the object that the transport exports. `ended` is called once, when the client is
/// gone; no method is called after it.
class ExportedConnection : public DaemonProtocol {
public:
    virtual void ended() = 0;
};

/// A second interface beside DaemonProtocol, for transports that carry named methods. Any thread may call it.
class NamedMethods {
public:
    using Reply = std::function<void(Result<Value>)>;

    virtual ~NamedMethods() = default;
    virtual bool hasMethod(std::string_view name) const = 0;
    /// Calls a method with its parameters (an array or an object; null when there were none). Replies exactly once.
    virtual void call(std::string_view name, const Value& parameters, const Caller& caller, Reply reply) = 0;
};

/// Decides on new clients. Called on the listener's own thread.
class ListenerDelegate {
public:
    virtual ~ListenerDelegate() = default;
    /// The object to export to this client, or nothing to turn it away.
    virtual std::shared_ptr<ExportedConnection> shouldAcceptNewConnection(std::shared_ptr<ClientLink> client) = 0;
};

/// Figures of a listener, cumulative since it started but for the open connections.
struct ListenerStatistics {
    std::uint64_t openConnections = 0;
    std::uint64_t acceptedConnections = 0;
    std::uint64_t requests = 0;
    std::uint64_t badRequests = 0;
    std::uint64_t envelopesSent = 0;
    std::uint64_t envelopesDropped = 0; ///< replaced by a newer one before the client took them
};

/// Accepts clients and carries the protocol until it is destroyed.
class Listener {
public:
    virtual ~Listener() = default;
    /// Takes no new clients from here on; those that there are stay. For a listener whose socket others hold: who connects
    /// from now on is the next daemon's.
    virtual void stopAccepting() { }
    virtual ListenerStatistics statistics() const = 0;
};

} // namespace meridal
