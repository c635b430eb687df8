// SPDX-License-Identifier: Apache-2.0
#include "platform/PlatformController.h"

#include "base/Text.h"
#include "platform/Context.h"
#include "platform/host/Host.h"

#include <algorithm>

namespace meridal {

PlatformController::PlatformController(Context& context, const PlatformRegistry& registry)
    : modelIdentifier_(context.host.machine->modelIdentifier())
    , chassisIsPortable_(context.host.machine->chassisIsPortable())
    , fauxMac_(context.host.machine->hasService("FakeSMC"))
    , currentPlatform_(loadCurrentPlatform(context, registry))
{
}

const PlatformController& PlatformController::sharedPlatformController()
{
    static const PlatformController instance(Context::shared());
    return instance;
}

bool PlatformController::isLaptop() const
{
    return lowercase(modelIdentifier_.value_or("")).starts_with("macbook") || chassisIsPortable_.value_or(false);
}

std::unique_ptr<PlatformMac> PlatformController::loadCurrentPlatform(
    Context& context, const PlatformRegistry& registry) const
{
    std::string name = fauxMac_ ? "FauxMac" : modelIdentifier_.value_or("");
    std::replace(name.begin(), name.end(), ',', '_');
    const auto entry = registry.find(name);
    return entry == registry.end() ? std::make_unique<PlatformMac>(context) : entry->second(context);
}

} // namespace meridal
