// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Lifetime.h"
#include "base/Value.h"
#include "platform/host/MachineCounters.h"

#include <cstdint>
#include <deque>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace meridal {

class HistoryDatabaseItem;
struct Context;

/// The processes that the kernel killed for want of memory: recorded in a table of their own, the latest in memory. Those
/// from before the daemon's start, too, as far as the kernel still knows them, and each once. Main queue only.
class MemoryKillRecord {
public:
    /// `file` is where the table is.
    MemoryKillRecord(Context& context, std::filesystem::path file);

    /// After each reading of memory: asks who it was when the count of kills has moved. Without `isRecording` nothing is
    /// written, and no file made.
    void update(std::optional<std::uint64_t> count, bool isRecording);
    /// The latest, oldest first: [{"time", "pid", "name", "user", "cgroup", "bytes"}, …].
    Value state() const;

    static constexpr std::size_t mostTold = 16;
    static constexpr std::size_t mostRecorded = 1000;

private:
    enum class Phase { NotStarted, Loading, Loaded };
    struct Entry {
        std::string boot;
        double time = 0; ///< s since 1970
        MemoryKill kill;
    };

    std::shared_ptr<HistoryDatabaseItem> database() const;
    void load();
    void loaded(const std::deque<Entry>& recorded);
    void askForNews();
    void takeNews(std::vector<MemoryKill> news);
    void add(MemoryKill kill, double time);

    Context& context_;
    const std::filesystem::path file_;
    bool isRecording_ = false;
    bool isDeclared_ = false; ///< the table
    Phase phase_ = Phase::NotStarted;
    std::string boot_; ///< identifies it
    std::uint64_t count_ = 0;
    std::uint64_t countSeen_ = 0; ///< of which the kernel's log was asked
    std::uint64_t missing_ = 0;   ///< of those that it has not told of
    std::size_t questions_ = 0;   ///< without them having come
    bool isAsking_ = false;
    std::optional<double> asked_; ///< the latest time, of the clock that never steps
    std::deque<Entry> latest_;
    Lifetime lifetime_;
};

} // namespace meridal
