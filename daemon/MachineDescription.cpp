// SPDX-License-Identifier: Apache-2.0
#include "daemon/MachineDescription.h"

#include "base/Text.h"
#include "daemon/MeridalHistory.h"
#include "daemon/Parameters.h"
#include "platform/Context.h"
#include "platform/PlatformController.h"
#include "platform/host/Host.h"
#include "wire/Methods.h"

#include <cstdint>
#include <utility>

namespace meridal {

namespace {

/// Firmware may hold any bytes, and nothing where there should be something.
void putText(Value& into, const char* key, const std::optional<std::string>& text)
{
    if (text && !text->empty()) {
        into[key] = validUtf8(*text);
    }
}

/// Of figures that the system gives as they are: whole ones.
void putWhole(Value& into, const char* key, const std::optional<double>& figure)
{
    if (figure && *figure > 0) {
        into[key] = static_cast<std::uint64_t>(*figure);
    }
}

Value describeProcessors(const PlatformMac& platform, const MachineInfo& machine)
{
    Value processors = {{"cores", platform.cpuPhysicalCoreCount()}, {"threads", platform.cpuCount()}};
    putText(processors, "model", platform.cpu());
    put(processors, "packages", machine.processorPackages());
    putWhole(processors, "frequency", platform.cpuSpeed());
    putWhole(processors, "maximumFrequency", machine.maximumHertz());
    return processors;
}

} // namespace

Value describeMachine(Context& context, const PlatformController& controller, const Peer& peer)
{
    const MachineInfo& machine = *context.host.machine;
    const PlatformMac& platform = controller.currentPlatform();
    Value description = {{"cpu", describeProcessors(platform, machine)}};
    if (controller.isLaptop() || machine.chassisIsPortable()) {
        description["portable"] = controller.isLaptop();
    }
    if (controller.modelIdentifier()) {
        putText(description, "model", platform.name());
        putText(description, "modelIdentifier", platform.identifier());
    }
    putText(description, "vendor", machine.vendorName());
    if (peer.isRoot()) {
        putText(description, "serial", platform.serial());
    }
    putText(description, "board", platform.boardID());
    if (platform.manufactureYear() > 0) {
        description["manufactured"] = {{"year", platform.manufactureYear()}, {"week", platform.manufactureWeek()}};
    }
    putText(description, "firmware", machine.firmwareVersion());
    putWhole(description, "memory", platform.memory());
    putText(description, "system", platform.osVersion());
    putText(description, "kernel", machine.kernelRelease());
    putText(description, "architecture", machine.architecture());
    putText(description, "virtualisation", machine.virtualisation());
    putText(description, "hostName", machine.hostName());
    put(description, "bootTime", machine.bootTime());
    return description;
}

void addMachineDescription(MeridalHistory& methods, Context& context, const PlatformController& platform)
{
    methods.addAsyncMethod(method::machineInfo,
        [&context, &platform](const Value& given, const Peer& peer, const MeridalHistory::Reply& reply) {
            if (const Parameters parameters(given); !parameters.valid()) {
                return reply(parameters.failure());
            }
            reply(describeMachine(context, platform, peer));
        });
}

} // namespace meridal
