// SPDX-License-Identifier: Apache-2.0
#include "daemon/MRDXPCServer.h"

#include "base/Runtime.h"
#include "daemon/MRDXPCServerConnection.h"
#include "daemon/MeridalDaemon.h"
#include "platform/Context.h"

#include <utility>

namespace meridal {

MRDXPCServer::MRDXPCServer(MeridalDaemon& daemon) : daemon_(daemon) { }

MRDXPCServer& MRDXPCServer::sharedXPCServer() { return MeridalDaemon::sharedDaemon().server(); }

std::shared_ptr<ExportedConnection> MRDXPCServer::shouldAcceptNewConnection(std::shared_ptr<ClientLink> client)
{
    auto connection = std::make_shared<MRDXPCServerConnection>(daemon_, std::move(client));
    // Posted before anything the client can ask, so the list holds the connection when its first request runs.
    daemon_.context().runtime.mainQueue().post([this, connection] { connections_.push_back(connection); });
    return connection;
}

void MRDXPCServer::removeConnection(const std::shared_ptr<MRDXPCServerConnection>& connection)
{
    std::erase(connections_, connection);
}

} // namespace meridal
