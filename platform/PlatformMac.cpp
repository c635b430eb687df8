// SPDX-License-Identifier: Apache-2.0
#include "platform/PlatformMac.h"

#include "platform/Context.h"
#include "platform/SerialNumber.h"
#include "platform/host/Host.h"

namespace meridal {

PlatformMac::PlatformMac(Context& context)
    : machine_(*context.host.machine)
    , serial_(machine_.serialNumber())
    , boardID_(machine_.boardIdentifier().value_or(""))
{
    decodeSerial();
}

std::string PlatformMac::identifier() const { return machine_.modelIdentifier().value_or("Unknown"); }

std::optional<std::string> PlatformMac::networkHardwareAdress() const { return machine_.networkHardwareAddress(); }

int PlatformMac::cpuCount() const { return machine_.logicalProcessors(); }

int PlatformMac::cpuCoreCount() const { return machine_.logicalProcessors(); }

int PlatformMac::cpuPhysicalCoreCount() const { return machine_.physicalProcessors(); }

std::optional<std::string> PlatformMac::cpu() const { return machine_.processorName(); }

std::optional<double> PlatformMac::cpuSpeed() const { return machine_.processorHertz(); }

std::optional<double> PlatformMac::memory() const { return machine_.memoryBytes(); }

std::string PlatformMac::osVersion() const { return machine_.systemName(); }

std::optional<std::string> PlatformMac::nameForFan(int) const { return std::nullopt; }

void PlatformMac::decodeSerial()
{
    if (const auto date = manufactureDate(serial_.value_or(""), identifier())) {
        manufactureYear_ = date->year;
        manufactureWeek_ = date->week;
    }
}

} // namespace meridal
