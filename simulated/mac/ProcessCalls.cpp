// SPDX-License-Identifier: Apache-2.0
#include "simulated/mac/Kernel.h"
#include "simulated/mac/Ledger.h"

#include <algorithm>
#include <cerrno>

using namespace meridal::test;

namespace {

proc_bsdinfo identityOf(std::int32_t pid, const SimulatedProcess& process)
{
    proc_bsdinfo info{};
    info.pbi_pid = static_cast<std::uint32_t>(pid);
    info.pbi_ppid = static_cast<std::uint32_t>(process.parent);
    info.pbi_uid = process.user;
    info.pbi_status = static_cast<std::uint32_t>(process.status);
    process.command.copy(info.pbi_comm, sizeof info.pbi_comm - 1);
    process.name.copy(info.pbi_name, sizeof info.pbi_name - 1);
    info.pbi_nice = process.nice;
    return info;
}

/// A record that the kernel hands out whole or not at all.
template <typename Record>
int giveRecord(const Record& record, void* buffer)
{
    std::memcpy(buffer, &record, sizeof record);
    return sizeof record;
}

/// As many as fit, and not a word of those that did not.
int giveDescriptors(const SimulatedProcess& process, void* buffer, int size)
{
    std::vector<proc_fdinfo> list;
    for (const auto& [number, socket] : process.sockets) {
        list.push_back({number, PROX_FDTYPE_SOCKET});
    }
    for (const std::int32_t number : process.files) {
        list.push_back({number, PROX_FDTYPE_VNODE});
    }
    if (!buffer) {
        constexpr std::size_t toSpare = 20;
        return static_cast<int>((list.size() + toSpare) * sizeof(proc_fdinfo));
    }
    const std::size_t written = std::min(list.size(), static_cast<std::size_t>(size) / sizeof(proc_fdinfo));
    std::copy_n(list.begin(), written, static_cast<proc_fdinfo*>(buffer));
    return static_cast<int>(written * sizeof(proc_fdinfo));
}

/// Bytes of the record of a flavour, which the caller has to have room for.
int sizeOfFlavour(int flavour, const void* buffer)
{
    switch (flavour) {
    case PROC_PIDTASKALLINFO:
        return sizeof(proc_taskallinfo);
    case PROC_PIDTBSDINFO:
        return sizeof(proc_bsdinfo);
    case PROC_PIDVNODEPATHINFO:
        return sizeof(proc_vnodepathinfo);
    default:
        return buffer ? sizeof(proc_fdinfo) : 0;
    }
}

int giveFlavour(int flavour, std::int32_t pid, const SimulatedProcess& process, void* buffer, int size)
{
    proc_taskallinfo all{};
    proc_vnodepathinfo paths{};
    switch (flavour) {
    case PROC_PIDTASKALLINFO:
        all.pbsd = identityOf(pid, process);
        all.ptinfo.pti_threadnum = process.threads;
        all.ptinfo.pti_numrunning = process.running;
        return giveRecord(all, buffer);
    case PROC_PIDTBSDINFO:
        return giveRecord(identityOf(pid, process), buffer);
    case PROC_PIDVNODEPATHINFO:
        process.workingDirectory.copy(paths.pvi_cdir.vip_path, sizeof paths.pvi_cdir.vip_path - 1);
        return giveRecord(paths, buffer);
    default:
        return giveDescriptors(process, buffer, size);
    }
}

} // namespace

extern "C" {

int proc_pidinfo(int pid, int flavour, std::uint64_t, void* buffer, int size)
{
    const std::string call = "proc_pidinfo " + std::to_string(flavour) + (buffer ? "" : ", size");
    const auto fault = Ledger::current().call(call);
    const SimulatedProcess* process = fault ? nullptr : Kernel::current().ask(pid);
    int answer = 0; // the library's word for an error
    if (fault || (process && size < sizeOfFlavour(flavour, buffer))) {
        errno = fault.value_or(ENOMEM);
    } else if (process) {
        answer = giveFlavour(flavour, pid, *process, buffer, size);
    }
    Kernel::current().answered(call);
    return answer;
}

int proc_pidfdinfo(int pid, int descriptor, int flavour, void* buffer, int size)
{
    const SimulatedProcess* process = Kernel::current().ask(pid);
    const auto fault = Ledger::current().call("proc_pidfdinfo");
    const auto socket = process ? process->sockets.find(descriptor) : decltype(process->sockets.end()){};
    if (!process || fault || socket == process->sockets.end() || flavour != PROC_PIDFDSOCKETINFO
        || size < static_cast<int>(sizeof(socket_fdinfo))) {
        errno = process ? EBADF : errno;
        return 0;
    }
    socket_fdinfo info{};
    info.psi = socket->second;
    return giveRecord(info, buffer);
}

/// Whoever asks.
int proc_pidpath(int pid, void* buffer, std::uint32_t size)
{
    const SimulatedProcess* process = Kernel::current().ask(pid, false);
    const auto fault = Ledger::current().call("proc_pidpath");
    if (!process || fault || size < PROC_PIDPATHINFO_SIZE || size > PROC_PIDPATHINFO_MAXSIZE) {
        errno = process ? EOVERFLOW : errno;
        return 0;
    }
    std::memset(buffer, 0, size);
    return static_cast<int>(process->path.copy(static_cast<char*>(buffer), size - 1));
}

int proc_pid_rusage(int pid, int flavour, rusage_info_t* buffer)
{
    const std::string call = "proc_pid_rusage " + std::to_string(flavour);
    const auto fault = Ledger::current().call(call);
    const SimulatedProcess* process = fault ? nullptr : Kernel::current().ask(pid, true, true);
    if (!process) {
        return refuseWith(fault.value_or(errno));
    }
    std::memcpy(buffer, &process->usage, flavour == RUSAGE_INFO_V3 ? sizeof(rusage_info_v3) : sizeof(rusage_info_v2));
    Kernel::current().answered(call);
    return 0;
}
}
