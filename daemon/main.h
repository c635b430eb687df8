// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Paths.h"
#include "wire/Link.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace meridal {

class Runtime;
struct Context;
struct Host;

/// The few things that main needs and that differ between the hosts. One source for each host gives them.

std::unique_ptr<Runtime> makeRuntime();
/// What the command line says about ways to measure, where a host has several.
struct HostChoices {
    std::string processSource = "auto"; ///< "auto", "bpf" or "proc"
    bool readHiddenDisks = false;       ///< also disks whose adapter cannot tell whether that spins them up
};
std::unique_ptr<Host> makeHost(Runtime& runtime, const HostChoices& choices);
/// Where this host keeps the daemon's things when no root is given.
Paths defaultPaths();
/// What this host serves clients by, beside the socket.
std::vector<std::unique_ptr<Listener>> makeNativeListeners(Context& context, ListenerDelegate& delegate);
/// A socket that listens already, which the service manager made before us and keeps when we end. The caller's from here on.
std::optional<int> inheritedSocket();
/// Lets the process hold as many descriptors as the system gives it: each client costs one.
void raiseDescriptorLimit();
/// Whether our standard error goes to the system's journal, which keeps what we log.
bool logsToJournal();
/// Has a crash tell where it happened, on standard error, where the system keeps no report of its own.
void reportCrashes(bool toJournal);
/// Has all threads allocate from one place, before there are any: memory that one gives back serves the others. There is
/// little to wait for, as nearly all is done by the main thread and small pieces come from a store of each thread's own.
void shareAllocator();
/// Gives the system back what the allocator holds for later: reading stored history at the start, and each batch of rows,
/// leave more of it than the daemon itself takes. 0.1 ms.
void returnFreeMemory();
/// Unmaps code until it is used again: most of what a step of the start needed is not. About 1 ms with what it takes to map
/// the rest again. Not for later: breakpoints and probes go with the pages that they are written to.
void releaseCode();
/// Tells the service manager that clients are served from here on.
void notifyReady();
/// Tells the service manager that the end has begun.
void notifyStopping();
/// After how many seconds without a sign of life the service manager takes us for stuck; absent where it does not look.
std::optional<double> watchdogLimit();
/// The sign of life.
void notifyAlive();

} // namespace meridal
