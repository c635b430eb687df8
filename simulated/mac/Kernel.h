// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <libproc.h>
#include <mach/mach.h>
#include <sys/mount.h>
#include <sys/sysctl.h>
#include <sys/timex.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace meridal::test {

/// A process as the kernel keeps it.
struct SimulatedProcess {
    std::string command{}; ///< the kernel cuts it to 16 bytes
    std::string name{};    ///< the longer one, cut to 31 bytes; empty where none is registered
    std::uint32_t user = 0;
    std::int32_t parent = 1;
    char status = SRUN;
    char nice = 0;
    timeval start{};
    std::string path{};
    std::string arguments{}; ///< its argument area, with the count of them; empty where it has none
    std::string workingDirectory{};
    std::int32_t threads = 1, running = 0;
    rusage_info_v3 usage{};
    task_vm_info memory{};
    std::map<std::int32_t, socket_info> sockets{}; ///< by descriptor
    std::vector<std::int32_t> files{};             ///< other descriptors
};

/// What the kernel of the simulated Mac knows, and how it answers.
class Kernel {
public:
    static Kernel& current();
    void reset() { *this = {}; }

    void set(const std::string& setting, const std::string& bytes) { settings[setting] = bytes; }
    template <typename Number>
    void set(const std::string& setting, Number number)
    {
        settings[setting].assign(reinterpret_cast<const char*>(&number), sizeof number);
    }

    std::map<std::int32_t, SimulatedProcess> processes{};
    std::uint32_t user = 0; ///< with whose rights the daemon asks
    /// What happens after an answer, by the call's name: processes come and go while they are looked at.
    std::function<void(const std::string& call)> meanwhile{};
    mach_msg_type_number_t memoryWords = TASK_VM_INFO_COUNT; ///< of a task's memory record that this kernel has

    std::map<std::string, std::string> settings{};     ///< of sysctlbyname, as bytes
    std::vector<std::array<unsigned, 4>> processors{}; ///< ticks by CPU_STATE
    vm_statistics64 pages{};                           ///< of memory
    std::vector<struct statfs> mounts{};
    std::map<std::string, std::vector<std::uint8_t>> links{};        ///< interfaces, with their hardware addresses
    ntptimeval clock{};                                              ///< with the state that the call answers, too
    std::map<std::string, std::map<std::string, void*>> libraries{}; ///< that can be opened, with their symbols

    std::size_t roomForTable = 0; ///< that the last reader of the table of processes had, bytes

    // What the calls are made of.
    void answered(const std::string& call) const;
    /// A process that is asked for in detail; null, with errno, where it has ended or is another user's.
    SimulatedProcess* ask(std::int32_t pid, bool ofOwnUserOnly = true, bool asZombie = false);

    std::map<mach_port_t, std::int32_t> tasks{};      ///< ports that were given out, with their processes
    std::map<vm_address_t, std::vector<int>> given{}; ///< memory that came with answers
};

/// An argument area of a program that was started by that path.
std::string argumentArea(const std::string& path, const std::vector<std::string>& arguments);
/// A failed call's answer.
int refuseWith(int code);

} // namespace meridal::test
