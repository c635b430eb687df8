// SPDX-License-Identifier: Apache-2.0
#include "client/commands/ProcessActions.h"

#include "client/panels/ActionDialog.h"

#include <fmt/format.h>

#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <system_error>
#include <unistd.h>
#if __has_include(<libproc.h>)
#include <libproc.h>
#endif

namespace meridal {

namespace {

constexpr double sameStart = 0.1; // s; clocks that are being adjusted make the same start look a little different

#if __has_include(<libproc.h>)

std::optional<double> startOf(pid_t pid)
{
    constexpr double microsecond = 1e-6;
    proc_bsdinfo info{};
    if (proc_pidinfo(pid, PROC_PIDTBSDINFO, 0, &info, sizeof(info)) <= 0) {
        return std::nullopt; // it ended, or is another user's
    }
    return static_cast<double>(info.pbi_start_tvsec) + static_cast<double>(info.pbi_start_tvusec) * microsecond;
}

#else

/// When a process started, s since 1970; as the daemon tells it.
std::optional<double> startOf(pid_t pid)
{
    constexpr double nanosecond = 1e-9;
    constexpr int fieldsBefore = 19; // from the state, the first one behind the name, to the start
    std::ifstream file(fmt::format("/proc/{}/stat", pid));
    const std::string stat((std::istreambuf_iterator<char>(file)), {});
    const std::size_t behindName = stat.rfind(')'); // a name may have anything in it
    if (behindName == std::string::npos) {
        return std::nullopt;
    }
    std::istringstream fields(stat.substr(behindName + 1));
    std::string skipped;
    for (int field = 0; field < fieldsBefore; ++field) {
        fields >> skipped;
    }
    double ticks = 0;
    timespec wall{};
    timespec sinceBoot{};
    if (!(fields >> ticks) || clock_gettime(CLOCK_REALTIME, &wall) != 0
        || clock_gettime(CLOCK_BOOTTIME, &sinceBoot) != 0) {
        return std::nullopt;
    }
    const double boot = static_cast<double>(wall.tv_sec - sinceBoot.tv_sec)
        + static_cast<double>(wall.tv_nsec - sinceBoot.tv_nsec) * nanosecond;
    return boot + ticks / static_cast<double>(sysconf(_SC_CLK_TCK));
}

#endif

/// Holds on to a process, so that its pid cannot become another's unnoticed between the look and the deed.
class HeldProcess {
public:
    explicit HeldProcess(pid_t pid) : pid_(pid)
    {
#ifdef SYS_pidfd_open
        descriptor_ = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
#endif
    }
    ~HeldProcess()
    {
        if (descriptor_ >= 0) {
            close(descriptor_);
        }
    }
    HeldProcess(const HeldProcess&) = delete;
    HeldProcess& operator=(const HeldProcess&) = delete;

    /// Where the system cannot hold on to processes the moment between look and deed stays.
    int send(int signal) const
    {
#ifdef SYS_pidfd_send_signal
        if (descriptor_ >= 0) {
            return static_cast<int>(syscall(SYS_pidfd_send_signal, descriptor_, signal, nullptr, 0));
        }
#endif
        return kill(pid_, signal);
    }

private:
    pid_t pid_;
    int descriptor_ = -1;
};

/// Why a process is not to be touched; empty when it is the one that was seen.
std::string objection(const SeenProcess& process)
{
    if (process.pid <= 0 || process.pid != static_cast<pid_t>(process.pid)) {
        return "is no process";
    }
    if (process.started <= 0) {
        return "is left alone: the daemon does not say when it started";
    }
    const auto start = startOf(static_cast<pid_t>(process.pid));
    return !start                                        ? "has ended"
        : std::abs(*start - process.started) > sameStart ? "has ended; its number is another's now"
                                                         : "";
}

std::string failure(int error)
{
    return error == EPERM || error == EACCES ? "you may not do that to it" : std::generic_category().message(error);
}

/// Every thread is as nice as itself on Linux; elsewhere there is no such folder, and the process stands for all.
int setNiceOfAll(pid_t pid, int nice)
{
    std::error_code none;
    int error = setpriority(PRIO_PROCESS, static_cast<id_t>(pid), nice) == 0 ? 0 : errno;
    for (const auto& thread : std::filesystem::directory_iterator(fmt::format("/proc/{}/task", pid), none)) {
        const auto id = static_cast<id_t>(std::strtoul(thread.path().filename().c_str(), nullptr, 10));
        if (error == 0 && setpriority(PRIO_PROCESS, id, nice) != 0 && errno != ESRCH) {
            error = errno;
        }
    }
    return error;
}

} // namespace

std::string sendSignal(const std::vector<SeenProcess>& processes, int signal)
{
    std::vector<SeenProcess> reached;
    std::string trouble;
    for (const SeenProcess& process : processes) {
        const HeldProcess held(static_cast<pid_t>(process.pid));
        std::string why = objection(process);
        if (why.empty() && held.send(signal) != 0) {
            why = failure(errno);
        }
        if (why.empty()) {
            reached.push_back(process);
        } else {
            trouble += fmt::format("{}{}: {}", trouble.empty() ? "" : "; ", processesText({process}), why);
        }
    }
    const std::string done =
        reached.empty() ? "" : fmt::format("{} sent to {}", signalName(signal), processesText(reached));
    return done + (done.empty() || trouble.empty() ? "" : "; ") + trouble;
}

std::string setNice(const SeenProcess& process, int nice)
{
    const HeldProcess held(static_cast<pid_t>(process.pid));
    const std::string why = objection(process);
    const int error = why.empty() ? setNiceOfAll(static_cast<pid_t>(process.pid), nice) : 0;
    const std::string name = processesText({process});
    return !why.empty() ? fmt::format("{}: {}", name, why)
        : error != 0    ? fmt::format("{}: {}", name, failure(error))
                        : fmt::format("{} is {} nice now", name, nice);
}

} // namespace meridal
