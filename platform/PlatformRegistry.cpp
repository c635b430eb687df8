// SPDX-License-Identifier: Apache-2.0
#include "platform/PlatformRegistry.h"

#include "platform/PlatformMacPro.h"
#include "platform/PlatformiMac.h"

namespace meridal {

namespace {

template <typename Platform>
void addAll(PlatformRegistry& registry, std::initializer_list<const char*> names)
{
    for (const char* name : names) {
        registry.emplace(name, [](Context& context) { return std::make_unique<Platform>(context); });
    }
}

PlatformRegistry makeRegistry()
{
    PlatformRegistry registry;
    addAll<PlatformMacPro>(
        registry, {"MacPro1_1", "MacPro2_1", "MacPro3_1", "MacPro4_1", "MacPro5_1", "MacPro6_1", "MacPro7_1"});
    addAll<PlatformiMac>(registry,
        {"iMac4_1", "iMac4_2", "iMac5_1", "iMac5_2", "iMac6_1", "iMac7_1", "iMac8_1", "iMac9_1", "iMac10_1", "iMac11_1",
            "iMac11_2", "iMac11_3", "iMac12_1", "iMac12_2", "iMac13_1", "iMac13_2", "iMac13_3", "iMac14_1", "iMac14_2",
            "iMac14_3", "iMac14_4", "iMac15_1", "iMac16_1", "iMac16_2", "iMac17_1", "iMac18_1", "iMac18_2", "iMac18_3",
            "iMac19_1", "iMac19_2", "iMac20_1", "iMac20_2"});
    return registry;
}

} // namespace

const PlatformRegistry& platformRegistry()
{
    static const PlatformRegistry registry = makeRegistry();
    return registry;
}

} // namespace meridal
