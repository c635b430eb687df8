// SPDX-License-Identifier: Apache-2.0
#include "collectors/network/NetworkStatCollectorMac.h"

#include "base/SharedInstance.h"
#include "collectors/network/CoreWLanStatCollector.h"
#include "platform/Context.h"
#include "platform/host/Host.h"

#include <cassert>
#include <memory>

namespace meridal {

NetworkStatCollectorMac::NetworkStatCollectorMac(
    Context& context, HistoryDatabaseController& databases, CoreWLanStatCollector& wireless)
    : NetworkStatCollector(context, databases), wireless_(wireless)
{
}

NetworkStatCollectorMac& NetworkStatCollectorMac::sharedNetworkCollector()
{
    auto& instance = sharedInstance<NetworkStatCollectorMac>();
    if (!instance) {
        assert(Context::shared().databases);
        instance = std::make_unique<NetworkStatCollectorMac>(
            Context::shared(), *Context::shared().databases, CoreWLanStatCollector::sharedCoreWlanCollector());
    }
    return *instance;
}

void NetworkStatCollectorMac::cleanupShared()
{
    auto& instance = sharedInstance<NetworkStatCollectorMac>();
    if (instance) {
        instance->cleanup();
        instance.reset();
    }
}

void NetworkStatCollectorMac::updateStats()
{
    if (const NetworkReading* reading = context().host.networkInterfaces->read()) {
        takeReading(*reading);
    }
}

std::optional<WirelessIdentity> NetworkStatCollectorMac::wirelessIdentity(const std::string& name)
{
    return wireless_.interfaceWithBSD(name);
}

} // namespace meridal
