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

bool MRDXPCServer::admit(const Peer& peer)
{
    if (peer.isRoot()) {
        return true;
    }
    const std::lock_guard lock(mutex_);
    std::size_t& count = ofUser_[peer.user()];
    return count < mostOfUser && ++count > 0;
}

void MRDXPCServer::release(const Peer& peer)
{
    const std::lock_guard lock(mutex_);
    if (const auto user = ofUser_.find(peer.user()); user != ofUser_.end() && --user->second == 0) {
        ofUser_.erase(user);
    }
}

std::shared_ptr<ExportedConnection> MRDXPCServer::shouldAcceptNewConnection(std::shared_ptr<ClientLink> client)
{
    if (!admit(client->peer())) {
        return nullptr;
    }
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
