#include "daemon/NetworkActions.h"

#include "base/Log.h"
#include "base/Runtime.h"
#include "platform/host/Host.h"

#include <fmt/format.h>

#include <utility>

namespace meridal {

NetworkActions::NetworkActions(Context& context, const CollectorPorts& ports)
    : context_(context), ports_(ports), queue_(context.runtime.makeSerialQueue("network actions"))
{
}

bool NetworkActions::mayChangeNetwork(const Peer& peer)
{
    UserRights& rights = *context_.host.userRights;
    return peer.known && (rights.administers(peer.uid) || rights.ownsActiveSeat(peer.uid));
}

void NetworkActions::perform(const Peer& peer, std::string name, std::function<Result<void>()> action, Done done)
{
    queue_->post([this, peer, name = std::move(name), action = std::move(action), done = std::move(done)] {
        const std::string who = peer.known ? fmt::format("uid {}", peer.uid) : std::string("an unknown user");
        if (!mayChangeNetwork(peer)) {
            context_.log.warning(fmt::format("{} refused to {}", name, who));
            return done(unexpected(
                ErrorCode::NotPermitted, name + " is for root, administrators and the user at this machine"));
        }
        if (!action) {
            context_.log.warning(fmt::format("{} asked by {}: nothing here can do it", name, who));
            return done(unexpected(ErrorCode::Unavailable,
                name + " needs a network configuration service, which this daemon does not have"));
        }
        const auto result = action();
        context_.log.info(fmt::format("{} by {}: {}", name, who, result ? "done" : result.error().message));
        done(result);
    });
}

void NetworkActions::refreshDHCP(const Peer& peer, std::string interfaceName, Done done)
{
    std::function<Result<void>()> action;
    if (ports_.refreshDHCP) {
        action = [this, interfaceName = std::move(interfaceName)] { return ports_.refreshDHCP(interfaceName); };
    }
    perform(peer, "refreshDHCP:", std::move(action), std::move(done));
}

void NetworkActions::toggleAirPortPower(const Peer& peer, Done done)
{
    perform(peer, "toggleAirPortPower", ports_.toggleAirPortPower, std::move(done));
}

void NetworkActions::setNetworkSet(const Peer& peer, std::string identifier, Done done)
{
    std::function<Result<void>()> action;
    if (ports_.setNetworkSet) {
        action = [this, identifier = std::move(identifier)] { return ports_.setNetworkSet(identifier); };
    }
    perform(peer, "setNetworkSet:", std::move(action), std::move(done));
}

} // namespace meridal
