// SPDX-License-Identifier: Apache-2.0
#include "daemon/main.h"

#include "base/Installation.h"
#include "daemon/transport/XPCListener.h"
#include "platform/Context.h"
#include "platform/macos/MacHost.h"
#include "platform/macos/kernel/DispatchRuntime.h"

#include <malloc/malloc.h>
#include <sys/resource.h>

#include <algorithm>

namespace meridal {

namespace {

constexpr const char* machServiceName = "org.meridal.daemon";
/// The kernel refuses a soft limit above its own, whatever the hard limit says; this is below every kernel's.
constexpr rlim_t mostDescriptors = 10'240;

} // namespace

std::unique_ptr<Runtime> makeRuntime() { return std::make_unique<DispatchRuntime>(makeRunLoopGround()); }

std::unique_ptr<Host> makeHost(Runtime& runtime, const HostChoices&) { return makeMacHost(runtime); }

Paths defaultPaths() { return installation().paths; }

std::vector<std::unique_ptr<Listener>> makeNativeListeners(Context& context, ListenerDelegate& delegate)
{
    std::vector<std::unique_ptr<Listener>> listeners;
    listeners.push_back(std::make_unique<XPCListener>(machServiceName, delegate, context.log));
    return listeners;
}

// launchd holds the name of the Mach service, at which clients wait in the same way.
std::optional<int> inheritedSocket() { return std::nullopt; }

void raiseDescriptorLimit()
{
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = std::min(limit.rlim_max, mostDescriptors);
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }
}

bool logsToJournal() { return false; } // the unified log takes nothing from standard error

void reportCrashes(bool) { } // the system's own report is better

void shareAllocator() { } // this host's allocator shares by itself

void returnFreeMemory() { malloc_zone_pressure_relief(nullptr, 0); }

void releaseCode() { } // which here most programs share

// launchd takes a program that checks in for its services as ready, and asks for nothing at the end or meanwhile.
void notifyReady() { }

void notifyStopping() { }

std::optional<double> watchdogLimit() { return std::nullopt; }

void notifyAlive() { }

} // namespace meridal
