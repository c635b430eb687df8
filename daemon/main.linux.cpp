// SPDX-License-Identifier: Apache-2.0
#include "daemon/main.h"

#include "base/AsioRuntime.h"
#include "base/Installation.h"
#include "platform/Context.h"
#include "platform/linux/LinuxHost.h"
#include "platform/linux/kernel/ProgramPages.h"
#include "platform/linux/kernel/StandardError.h"
#include "wire/Version.h"

#include <malloc.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <systemd/sd-daemon.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>

namespace meridal {

namespace {

/// A folder that the service manager made for us, or the usual one. The manager may pass several, divided by colons.
std::filesystem::path folder(const char* variable, const std::filesystem::path& usual)
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
    const char* diskSocket = std::getenv("MERIDAL_DISKS_SOCKET"); // set by our unit
    return makeLinuxHost(runtime,
        {.readHiddenDisks = choices.readHiddenDisks,
            .diskSocket = diskSocket ? diskSocket : "",
            .bpfProcesses = choices.processSource != "proc"});
}

Paths defaultPaths()
{
    const Paths& usual = installation().paths;
    return {.support = folder("STATE_DIRECTORY", usual.support),
        .logs = folder("LOGS_DIRECTORY", usual.logs),
        .run = folder("RUNTIME_DIRECTORY", usual.run),
        .configuration = folder("CONFIGURATION_DIRECTORY", usual.configuration)};
}

std::vector<std::unique_ptr<Listener>> makeNativeListeners(Context&, ListenerDelegate&) { return {}; }

std::optional<int> inheritedSocket()
{
    const int count = ::sd_listen_fds(1); // no child of ours is to take them for its own
    for (int descriptor = SD_LISTEN_FDS_START; descriptor < SD_LISTEN_FDS_START + count; ++descriptor) {
        if (::sd_is_socket_unix(descriptor, SOCK_STREAM, 1, nullptr, 0) > 0) {
            return descriptor;
        }
    }
    return std::nullopt;
}

void raiseDescriptorLimit()
{
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = limit.rlim_max;
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }
}

bool logsToJournal()
{
    const char* stream = std::getenv("JOURNAL_STREAM");
    return stream && leadsToJournal(2, stream);
}

void reportCrashes(bool toJournal) { reportCrashes(versionText("meridald"), toJournal ? "<2>" : ""); }

void shareAllocator() { ::mallopt(M_ARENA_MAX, 1); }

void returnFreeMemory() { ::malloc_trim(0); }

void releaseCode() { releaseProgramPages(); }

void notifyReady() { ::sd_notify(0, "READY=1"); }

void notifyStopping() { ::sd_notify(0, "STOPPING=1"); }

std::optional<double> watchdogLimit()
{
    std::uint64_t microseconds = 0;
    return ::sd_watchdog_enabled(0, &microseconds) > 0 ? std::optional(static_cast<double>(microseconds) / 1e6)
                                                       : std::nullopt;
}

void notifyAlive() { ::sd_notify(0, "WATCHDOG=1"); }

} // namespace meridal
