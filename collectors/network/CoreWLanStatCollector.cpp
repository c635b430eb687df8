// SPDX-License-Identifier: Apache-2.0
#include "collectors/network/CoreWLanStatCollector.h"

#include "base/SharedInstance.h"
#include "collectors/network/CoreWLanStatCollectorItem.h"
#include "platform/Context.h"
#include "platform/host/Host.h"

namespace meridal {

CoreWLanStatCollector::CoreWLanStatCollector(Context& context) : StatCollector(context, "CoreWLanStatCollector") { }

CoreWLanStatCollector& CoreWLanStatCollector::sharedCoreWlanCollector()
{
    auto& instance = sharedInstance<CoreWLanStatCollector>();
    if (!instance) {
        instance = std::make_unique<CoreWLanStatCollector>(Context::shared());
    }
    return *instance;
}

void CoreWLanStatCollector::cleanupShared()
{
    auto& instance = sharedInstance<CoreWLanStatCollector>();
    if (instance) {
        instance->cleanup();
        instance.reset();
    }
}

std::optional<WirelessIdentity> CoreWLanStatCollector::interfaceWithBSD(const std::string& name) const
{
    WirelessInterface* wireless = context().host.wireless.get();
    return wireless ? wireless->identity(name) : std::nullopt;
}

std::shared_ptr<StatCollectorItem> CoreWLanStatCollector::makeItem()
{
    return std::make_shared<CoreWLanStatCollectorItem>(context());
}

} // namespace meridal
