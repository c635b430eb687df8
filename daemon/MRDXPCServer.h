// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "wire/Link.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace meridal {

class MRDXPCServerConnection;
class MeridalDaemon;

/// Accepts clients, of each user but root no more than so many at once, and keeps the list of them. The list is touched on the
/// main queue only; accepting may happen on any thread.
class MRDXPCServer final : public ListenerDelegate {
public:
    explicit MRDXPCServer(MeridalDaemon& daemon);

    /// Connections that a user may have at once: each costs a descriptor, memory and work, and who may connect may do so for
    /// ever. Those whom the system does not name count as one user.
    static constexpr std::size_t mostOfUser = 64;

    std::shared_ptr<ExportedConnection> shouldAcceptNewConnection(std::shared_ptr<ClientLink> client) override;
    /// A client has gone, and its user may have another. Any thread.
    void release(const Peer& peer);
    /// Takes a connection off the list. Main queue.
    void removeConnection(const std::shared_ptr<MRDXPCServerConnection>& connection);
    /// Main queue.
    const std::vector<std::shared_ptr<MRDXPCServerConnection>>& connections() const { return connections_; }

    // Of the interface, and called by nothing here
    /// The instance of the process-wide daemon.
    static MRDXPCServer& sharedXPCServer();

private:
    bool admit(const Peer& peer);

    MeridalDaemon& daemon_;
    std::mutex mutex_;                                           // of the following
    std::map<std::optional<std::uint32_t>, std::size_t> ofUser_; ///< without root
    std::vector<std::shared_ptr<MRDXPCServerConnection>> connections_;
};

} // namespace meridal
