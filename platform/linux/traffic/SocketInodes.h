// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/linux/kernel/Descriptor.h"
#include "platform/linux/kernel/ProcFolder.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <limits>
#include <optional>
#include <unordered_map>
#include <vector>

namespace meridal {

/// The sockets in a process's descriptor table (/proc/PID/fd).
class ProcSockets {
public:
    explicit ProcSockets(const std::filesystem::path& folder);

    /// Calls `visit(fd)` for each open descriptor until it answers false. False when the table could not be read.
    bool forEachDescriptor(std::int32_t pid, const std::function<bool(int fd)>& visit) const;
    /// The inode of the socket behind a descriptor; 0 when it is none.
    std::uint64_t inodeOf(std::int32_t pid, int fd) const;

private:
    Descriptor folder_;
};

/// Which process has a socket, found by its inode and kept. Tables of descriptors are read only while an inode is looked
/// for, new processes first, then those that are known to have sockets, then the others from the youngest on (a child is
/// found before the parent that it inherited from), and never more of them at a time than a budget allows: a large table
/// is gone on with in the next search, and nothing is called absent before it is through. Not for two threads at once.
class SocketInodes {
public:
    enum class State : std::uint8_t {
        Found,
        Wanted, ///< is being looked for
        Absent, ///< every process was looked through, and none has it
    };
    struct Answer {
        State state = State::Wanted;
        std::int32_t pid = 0;
    };

    explicit SocketInodes(const std::filesystem::path& root);

    /// Costs nothing but a look-up, and now and then one link that is read to see whether the process still has it.
    Answer find(std::uint64_t inode);
    /// Goes on looking for what is wanted. True when something was found.
    bool search();
    std::size_t known() const { return owners_.size(); }

    static constexpr std::size_t mostKnown = 131'072;
    /// Owners that are kept, closed or not, before it is looked which of them are still there.
    static constexpr std::size_t firstForgotten = 4096;

private:
    struct Owner {
        std::int32_t pid = 0;
        int fd = -1;
        double checked = 0; ///< s of CLOCK_MONOTONIC
    };
    struct Wanted {
        std::uint32_t sinceRound = 0; ///< round of the walk in which it was first wanted
        double absentUntil = 0;       ///< s; nobody has it, and it is not looked for until then; 0 = is looked for
        double absentFor = 0;         ///< s; grows with every round in vain
    };
    /// What is known of one process's descriptors.
    struct Process {
        std::unordered_map<int, std::uint64_t> descriptors; ///< inode, 0 for what is no socket
        double since = 0;                                   ///< s; when it was first seen
        std::vector<int> unread;                            ///< of the scan under way, the next one last
        double notBefore = 0;                               ///< s; tables of many descriptors are read less often
        bool isScanned = false;                             ///< a scan is under way
        bool hasSockets = false;
    };

    bool listProcesses(double now);
    void scanLikely(double now);
    void walkOn(double now);
    bool scan(std::int32_t pid, double now, int& budget);
    void beginScan(std::int32_t pid, Process& process, int& budget);
    void readLink(std::int32_t pid, Process& process, int fd, double now);
    void endRound(double now);
    void forget(double now);

    ProcFolder folder_;
    ProcSockets sockets_;
    std::unordered_map<std::uint64_t, Owner> owners_; ///< by inode
    std::unordered_map<std::uint64_t, Wanted> wanted_;
    std::unordered_map<std::int32_t, Process> processes_;
    std::vector<std::int32_t> pids_; ///< of the latest listing, ascending
    std::vector<int> descriptors_;   ///< of the process being read; kept for its memory
    std::size_t searching_ = 0;      ///< wanted ones that are looked for
    std::size_t found_ = 0;          ///< by the current search
    /// The current round of the walk has this pid and those above behind it. No count of processes: those that end meanwhile
    /// would have others passed over.
    static constexpr std::int32_t allOfThem = std::numeric_limits<std::int32_t>::max();
    std::int32_t walkedTo_ = allOfThem;
    std::uint32_t round_ = 0;   ///< of those in which everybody was looked through
    bool isPassedOver_ = false; ///< somebody was, in this round: his large table was read a moment ago
    double forgetAt_ = 0;
    std::size_t forgetAtSize_ = firstForgotten; ///< of owners_
};

} // namespace meridal
