// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "wire/Link.h"

#include <memory>
#include <vector>

namespace meridal {

class MRDXPCServerConnection;
class MeridalDaemon;

/// Accepts every client and keeps the list of them. The list is touched on the main queue only; accepting may happen
/// on any thread.
class MRDXPCServer final : public ListenerDelegate {
public:
    explicit MRDXPCServer(MeridalDaemon& daemon);

    std::shared_ptr<ExportedConnection> shouldAcceptNewConnection(std::shared_ptr<ClientLink> client) override;
    /// Takes a connection off the list. Main queue.
    void removeConnection(const std::shared_ptr<MRDXPCServerConnection>& connection);
    /// Main queue.
    const std::vector<std::shared_ptr<MRDXPCServerConnection>>& connections() const { return connections_; }

    // Of the interface, and called by nothing here
    /// The instance of the process-wide daemon.
    static MRDXPCServer& sharedXPCServer();

private:
    MeridalDaemon& daemon_;
    std::vector<std::shared_ptr<MRDXPCServerConnection>> connections_;
};

} // namespace meridal
