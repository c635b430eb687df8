// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/traffic/SocketInodes.h"

#include <dirent.h>
#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <functional>
#include <memory>
#include <string_view>
#include <utility>

namespace meridal {

namespace {

constexpr double checkInterval = 1;           ///< s for which an owner is believed without looking
constexpr double youngFor = 10;               ///< s in which a new process is likely to open its first socket
constexpr double forgetInterval = 10;         ///< s
constexpr double firstAbsence = 5;            ///< s
constexpr double longestAbsence = 80;         ///< s
constexpr double secondsPerDescriptor = 1e-4; ///< between two readings of a large table: 1 % of a core at the most
constexpr std::size_t largeTable = 500;
/// Links read in one search, at about 5 µs each: of the likely processes, and of all the others.
constexpr int likelyBudget = 1500;
constexpr int walkBudget = 1000;

double searchTime()
{
    timespec time{};
    ::clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

/// "PID/fd" or "PID/fd/N", ended by a zero, on the stack.
std::array<char, 48> pathOf(std::int32_t pid, int fd)
{
    std::array<char, 48> path = {};
    char* at = std::to_chars(path.data(), path.data() + 12, pid).ptr;
    for (const char letter : std::string_view("/fd")) {
        *at++ = letter;
    }
    if (fd >= 0) {
        *at++ = '/';
        std::to_chars(at, path.data() + path.size() - 1, fd);
    }
    return path;
}

struct FolderCloser {
    void operator()(DIR* folder) const { ::closedir(folder); }
};

} // namespace

ProcSockets::ProcSockets(const std::filesystem::path& folder)
    : folder_(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))
{
}

bool ProcSockets::forEachDescriptor(std::int32_t pid, const std::function<bool(int fd)>& visit) const
{
    const int opened = ::openat(folder_.get(), pathOf(pid, -1).data(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const std::unique_ptr<DIR, FolderCloser> folder(opened < 0 ? nullptr : ::fdopendir(opened));
    if (!folder) {
        if (opened >= 0) {
            ::close(opened);
        }
        return false;
    }
    while (const dirent* entry = ::readdir(folder.get())) {
        const std::string_view name = entry->d_name;
        int fd = -1;
        const auto result = std::from_chars(name.data(), name.data() + name.size(), fd);
        if (result.ec == std::errc() && fd >= 0 && !visit(fd)) {
            break;
        }
    }
    return true;
}

std::uint64_t ProcSockets::inodeOf(std::int32_t pid, int fd) const
{
    std::array<char, 64> target = {};
    const ssize_t size = ::readlinkat(folder_.get(), pathOf(pid, fd).data(), target.data(), target.size());
    constexpr std::string_view prefix = "socket:[";
    const std::string_view text(target.data(), size > 0 ? static_cast<std::size_t>(size) : 0);
    if (!text.starts_with(prefix)) {
        return 0;
    }
    std::uint64_t inode = 0;
    std::from_chars(text.data() + prefix.size(), text.data() + text.size(), inode);
    return inode;
}

SocketInodes::SocketInodes(const std::filesystem::path& root) : folder_(root / "proc"), sockets_(root / "proc") { }

SocketInodes::Answer SocketInodes::find(std::uint64_t inode)
{
    const double time = searchTime();
    if (const auto owner = owners_.find(inode); owner != owners_.end()) {
        if (time - owner->second.checked < checkInterval) {
            return {State::Found, owner->second.pid};
        }
        if (sockets_.inodeOf(owner->second.pid, owner->second.fd) == inode) {
            owner->second.checked = time;
            return {State::Found, owner->second.pid};
        }
        // Closed, or handed on to a child, which is found if it is looked for.
        if (const auto process = processes_.find(owner->second.pid); process != processes_.end()) {
            process->second.descriptors.erase(owner->second.fd);
        }
        owners_.erase(owner);
    }
    const auto [entry, isNew] = wanted_.try_emplace(inode);
    Wanted& wanted = entry->second;
    if (!isNew && wanted.absentUntil > time) {
        return {State::Absent, 0};
    }
    if (isNew || wanted.absentUntil > 0) {
        wanted.absentUntil = 0;
        wanted.sinceRound = round_;
        ++searching_;
    }
    return {State::Wanted, 0};
}

bool SocketInodes::search()
{
    const double time = searchTime();
    found_ = 0;
    if (searching_ == 0 || !listProcesses(time)) {
        return false;
    }
    scanLikely(time);
    walkOn(time);
    if (time >= forgetAt_ || owners_.size() >= forgetAtSize_) {
        forgetAt_ = time + forgetInterval;
        forget(time);
    }
    return found_ > 0;
}

bool SocketInodes::listProcesses(double time)
{
    if (!folder_.listPids(pids_)) {
        return false;
    }
    const bool isFirst = processes_.empty();
    for (const std::int32_t pid : pids_) {
        const auto [process, isNew] = processes_.try_emplace(pid);
        if (isNew && !isFirst) {
            process->second.since = time;
        }
    }
    return true;
}

void SocketInodes::scanLikely(double time)
{
    int budget = likelyBudget;
    for (const bool wantsYoung : {true, false}) {
        for (auto pid = pids_.rbegin(); pid != pids_.rend() && searching_ > 0 && budget > 0; ++pid) {
            const Process& process = processes_[*pid];
            const bool isYoung = process.since > 0 && time - process.since < youngFor;
            if (wantsYoung ? isYoung : process.hasSockets && !isYoung) {
                scan(*pid, time, budget);
            }
        }
    }
}

/// Goes on with the walk over all processes, from the highest pid down, from where the last search stopped.
void SocketInodes::walkOn(double time)
{
    int budget = walkBudget;
    while (searching_ > 0 && budget > 0) {
        const auto beyond = std::lower_bound(pids_.begin(), pids_.end(), walkedTo_);
        if (beyond == pids_.begin()) {
            endRound(time);
            return;
        }
        const std::int32_t pid = *std::prev(beyond);
        if (!scan(pid, time, budget)) {
            return; // a large table; the walk waits here, or its end would call those absent that are in the rest of it
        }
        walkedTo_ = pid;
    }
}

/// Looks through one process as far as the budget goes. True when that is done: all of it was read since the scan began,
/// or nobody is looked for any more.
bool SocketInodes::scan(std::int32_t pid, double time, int& budget)
{
    Process& process = processes_[pid];
    if (!process.isScanned) {
        if (time < process.notBefore) {
            isPassedOver_ = true;
            return true;
        }
        beginScan(pid, process, budget);
    }
    for (; searching_ > 0 && !process.unread.empty(); process.unread.pop_back()) {
        if (budget <= 0) {
            return false;
        }
        --budget;
        readLink(pid, process, process.unread.back(), time);
    }
    process.isScanned = false;
    process.unread = {};
    if (process.descriptors.size() > largeTable) {
        process.notBefore = time + secondsPerDescriptor * static_cast<double>(process.descriptors.size());
    }
    return true;
}

/// Lists the descriptors: those that are new to us are read first, then the others, which may have been closed and opened
/// again in between.
void SocketInodes::beginScan(std::int32_t pid, Process& process, int& budget)
{
    descriptors_.clear();
    sockets_.forEachDescriptor(pid, [this](int fd) {
        descriptors_.push_back(fd);
        return true;
    });
    budget -= 2 + static_cast<int>(descriptors_.size() / 8); // opening and closing the folder, and its entries
    const auto isNew = [&process](int fd) { return !process.descriptors.contains(fd); };
    const std::size_t known = process.descriptors.size();
    const auto firstNew = std::stable_partition(descriptors_.begin(), descriptors_.end(), std::not_fn(isNew));
    process.unread = descriptors_;
    process.isScanned = true;
    if (static_cast<std::size_t>(firstNew - descriptors_.begin()) < known) { // some were closed
        std::sort(descriptors_.begin(), descriptors_.end());
        std::erase_if(process.descriptors, [this](const auto& entry) {
            return !std::binary_search(descriptors_.begin(), descriptors_.end(), entry.first);
        });
    }
}

void SocketInodes::readLink(std::int32_t pid, Process& process, int fd, double time)
{
    const std::uint64_t inode = sockets_.inodeOf(pid, fd);
    process.descriptors[fd] = inode;
    if (inode == 0) {
        return;
    }
    process.hasSockets = true;
    const auto wanted = wanted_.find(inode);
    if (wanted != wanted_.end()) {
        if (wanted->second.absentUntil == 0) {
            --searching_;
        }
        wanted_.erase(wanted);
        owners_[inode] = {pid, fd, time};
        ++found_;
    } else if (owners_.size() < mostKnown) {
        owners_.try_emplace(inode, Owner{pid, fd, time});
    }
}

/// Whoever was wanted for a whole round of the walk is nobody's.
void SocketInodes::endRound(double time)
{
    walkedTo_ = allOfThem;
    if (std::exchange(isPassedOver_, false)) {
        return; // not everybody was looked through
    }
    ++round_;
    for (auto& [inode, wanted] : wanted_) {
        if (wanted.absentUntil == 0 && round_ - wanted.sinceRound > 1) {
            wanted.absentFor = std::clamp(wanted.absentFor * 4, firstAbsence, longestAbsence);
            wanted.absentUntil = time + wanted.absentFor;
            --searching_;
        }
    }
}

void SocketInodes::forget(double time)
{
    std::erase_if(
        processes_, [this](const auto& entry) { return !std::binary_search(pids_.begin(), pids_.end(), entry.first); });
    // A descriptor that was closed, or has another socket now: nobody asks for the old one again.
    std::erase_if(owners_, [this](const auto& entry) {
        const auto process = processes_.find(entry.second.pid);
        if (process == processes_.end()) {
            return true;
        }
        const auto descriptor = process->second.descriptors.find(entry.second.fd);
        return descriptor == process->second.descriptors.end() || descriptor->second != entry.first;
    });
    forgetAtSize_ = std::max(firstForgotten, owners_.size() * 2);
    std::erase_if(wanted_, [time](const auto& entry) {
        return entry.second.absentUntil > 0 && time - entry.second.absentUntil > longestAbsence;
    });
}

} // namespace meridal
