// SPDX-License-Identifier: Apache-2.0
#include "simulated/mac/Kernel.h"
#include "simulated/mac/Ledger.h"

#include <algorithm>
#include <cerrno>
#include <span>
#include <string_view>

using namespace meridal::test;

namespace {

constexpr int largestArea = 1024 * 1024; // of arguments

/// As most settings answer: the size alone, all of it, or an error and the part that fits.
int give(std::string_view bytes, void* old, std::size_t* oldSize)
{
    const std::size_t room = old ? *oldSize : bytes.size();
    *oldSize = std::min(room, bytes.size());
    if (old) {
        std::memcpy(old, bytes.data(), *oldSize);
    }
    return room < bytes.size() ? refuseWith(ENOMEM) : 0;
}

kinfo_proc entryOf(std::int32_t pid, const SimulatedProcess& process)
{
    kinfo_proc entry{};
    entry.kp_proc.p_pid = pid;
    entry.kp_proc.p_starttime = process.start;
    entry.kp_proc.p_stat = process.status;
    entry.kp_proc.p_nice = process.nice;
    process.command.copy(entry.kp_proc.p_comm, MAXCOMLEN);
    entry.kp_eproc.e_ppid = process.parent;
    entry.kp_eproc.e_ucred.cr_uid = process.user;
    return entry;
}

/// The table counts all, zombies included, and writes those that fit; asked for its size, it allows for five more.
int giveTable(std::span<const int> filter, void* old, std::size_t* oldSize)
{
    std::vector<kinfo_proc> table;
    for (const auto& [pid, process] : Kernel::current().processes) {
        if (filter.empty() || filter.front() == pid) {
            table.push_back(entryOf(pid, process));
        }
    }
    if (!old) {
        *oldSize = (table.size() + 5) * sizeof(kinfo_proc);
        Kernel::current().answered("size of the table");
        return 0;
    }
    const std::size_t written = std::min(table.size(), *oldSize / sizeof(kinfo_proc));
    std::copy_n(table.begin(), written, static_cast<kinfo_proc*>(old));
    *oldSize = written * sizeof(kinfo_proc);
    Kernel::current().answered("table");
    return written < table.size() ? refuseWith(ENOMEM) : 0;
}

/// Processes that have none, have ended or are another's are the same error here.
int giveArguments(std::int32_t pid, void* old, std::size_t* oldSize)
{
    const SimulatedProcess* process = Kernel::current().ask(pid);
    if (!process || process->arguments.empty() || *oldSize > largestArea) {
        return refuseWith(EINVAL);
    }
    return give(process->arguments, old, oldSize);
}

} // namespace

extern "C" {

int sysctl(int* name, unsigned length, void* old, std::size_t* oldSize, void*, std::size_t)
{
    const std::span words(name, length);
    const bool isTable = length >= 3 && words[1] == KERN_PROC;
    Kernel::current().roomForTable = isTable && old ? *oldSize : Kernel::current().roomForTable;
    const auto fault = Ledger::current().call(!isTable ? "sysctl" : old ? "table" : "size of the table");
    if (fault) {
        return refuseWith(*fault);
    }
    if (isTable) {
        return giveTable(words[2] == KERN_PROC_PID ? words.subspan(3) : words.subspan(length), old, oldSize);
    }
    if (words[1] == KERN_ARGMAX) {
        const int limit = largestArea;
        return give({reinterpret_cast<const char*>(&limit), sizeof limit}, old, oldSize);
    }
    return words[1] == KERN_PROCARGS2 ? giveArguments(words[2], old, oldSize) : refuseWith(ENOENT);
}

int sysctlbyname(const char* name, void* old, std::size_t* oldSize, void*, std::size_t)
{
    const Kernel& kernel = Kernel::current();
    const auto found = kernel.settings.find(name);
    if (found == kernel.settings.end()) {
        return refuseWith(ENOENT);
    }
    const int result = give(found->second, old, oldSize);
    kernel.answered(name);
    return result;
}
}
