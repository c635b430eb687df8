// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/Host.h"
#include "platform/linux/processes/ProcProcessSource.h"

#include <filesystem>
#include <memory>
#include <string>

namespace meridal {

class Runtime;

struct LinuxHostOptions {
    std::filesystem::path root = "/"; ///< what holds proc, sys, etc, run and dev
    ProcProcessOptions processes = {};
    bool readHiddenDisks = false; ///< read disks that spin even where nobody can tell whether that spins them up
    std::string diskSocket = {};  ///< where meridal-disks listens; empty: it is started for each conversation
    bool bpfProcesses = true;     ///< BPF programs may be tried for the process table; never with another root than "/"
};

/// The seams on this machine. Made on the main thread; the runtime must outlive it.
std::unique_ptr<Host> makeLinuxHost(Runtime& runtime, const LinuxHostOptions& options = {});

/// Notes what this process may not read here or what the machine lacks, as it stands now.
void noteLimitations(const std::filesystem::path& root, Limitations& limitations);

} // namespace meridal
