// SPDX-License-Identifier: Apache-2.0
#include "daemon/main.h"

#include "base/AsioRuntime.h"
#include "platform/Context.h"
#include "platform/linux/LinuxHost.h"

#include <malloc.h>
#include <sys/resource.h>
#include <systemd/sd-daemon.h>

#include <cstdlib>
#include <filesystem>

namespace meridal {

namespace {

/// A folder that the service manager made for us, or the usual one. The manager may pass several, divided by colons.
std::filesystem::path folder(const char* variable, const char* usual)
{
    const char* given = std::getenv(variable);
    if (!given || !*given) {
        return usual;
    }
    const std::string_view folders(given);
    return folders.substr(0, folders.find(':'));
}

} // namespace

std::unique_ptr<Runtime> makeRuntime() { return std::make_unique<AsioRuntime>(); }

std::unique_ptr<Host> makeHost(Runtime& runtime, const HostChoices& choices)
{
    return makeLinuxHost(
        runtime, {.readHiddenDisks = choices.readHiddenDisks, .bpfProcesses = choices.processSource != "proc"});
}

Paths defaultPaths()
{
    return {.support = folder("STATE_DIRECTORY", "/var/lib/meridal"),
        .logs = folder("LOGS_DIRECTORY", "/var/log/meridal"),
        .run = folder("RUNTIME_DIRECTORY", "/run/meridal"),
        .configuration = folder("CONFIGURATION_DIRECTORY", "/etc/meridal")};
}

std::vector<std::unique_ptr<Listener>> makeNativeListeners(Context&, ListenerDelegate&) { return {}; }

void raiseDescriptorLimit()
{
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = limit.rlim_max;
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }
}

void shareAllocator() { ::mallopt(M_ARENA_MAX, 1); }

void returnFreeMemory() { ::malloc_trim(0); }

void notifyReady() { ::sd_notify(0, "READY=1"); }

void notifyStopping() { ::sd_notify(0, "STOPPING=1"); }

} // namespace meridal
