// SPDX-License-Identifier: Apache-2.0
#include "daemon/NetworkActions.h"

#include "base/Log.h"
#include "base/Runtime.h"
#include "base/Text.h"
#include "base/Value.h"
#include "platform/NetworkNames.h"
#include "platform/host/Host.h"
#include "wire/Methods.h"

#include <fmt/format.h>

#include <utility>

namespace meridal {

namespace {

constexpr std::size_t longestQuote = 128; // bytes

/// An action as the log tells it: its name and, in quotes, the client's word, which may be anything.
std::string describe(const std::string& name, const std::optional<std::string>& subject)
{
    return subject ? name + ' ' + serialise(Value(validUtf8(subject->substr(0, longestQuote)))) : name;
}

} // namespace

NetworkActions::NetworkActions(Context& context)
    : context_(context), queue_(context.runtime.makeSerialQueue("network actions"))
{
}

bool NetworkActions::mayChangeNetwork(const Peer& peer)
{
    UserRights& rights = *context_.host.userRights;
    return peer.known && (rights.administers(peer.uid) || rights.ownsActiveSeat(peer.uid));
}

void NetworkActions::perform(const Peer& peer, std::string name, std::optional<std::string> subject,
    std::function<Result<void>()> action, Done done)
{
    queue_->post([this, peer, name = std::move(name), subject = std::move(subject), action = std::move(action),
                     done = std::move(done)] {
        const std::string who = peer.known ? fmt::format("uid {}", peer.uid) : std::string("an unknown user");
        const std::string what = describe(name, subject);
        if (!mayChangeNetwork(peer)) {
            context_.log.warning(fmt::format("{} refused to {}", what, who));
            return done(unexpected(
                ErrorCode::NotPermitted, name + " is for root, administrators and the user at this machine"));
        }
        const auto result = action();
        context_.log.info(fmt::format("{} by {}: {}", what, who, result ? "done" : result.error().message));
        done(result);
    });
}

void NetworkActions::refreshDHCP(const Peer& peer, std::string interfaceName, Done done)
{
    auto action = [this, interfaceName]() -> Result<void> {
        if (!isInterfaceName(interfaceName)) {
            return unexpected(ErrorCode::InvalidArgument, "that cannot be the name of an interface");
        }
        return context_.host.networkConfiguration->refreshLease(interfaceName);
    };
    perform(peer, method::refreshDHCP, std::move(interfaceName), std::move(action), std::move(done));
}

void NetworkActions::toggleAirPortPower(const Peer& peer, Done done)
{
    auto action = [this] { return context_.host.wireless->togglePower(); };
    perform(peer, method::toggleAirPortPower, std::nullopt, std::move(action), std::move(done));
}

void NetworkActions::setNetworkSet(const Peer& peer, std::string identifier, Done done)
{
    auto action = [this, identifier]() -> Result<void> {
        if (!isNetworkSetIdentifier(identifier)) {
            return unexpected(ErrorCode::InvalidArgument, "that cannot be the name of a network set");
        }
        return context_.host.networkConfiguration->setNetworkSet(identifier);
    };
    perform(peer, method::setNetworkSet, std::move(identifier), std::move(action), std::move(done));
}

} // namespace meridal
