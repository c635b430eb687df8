// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Lifetime.h"
#include "base/Runtime.h"
#include "platform/host/MachineCounters.h"
#include "platform/linux/kernel/Descriptor.h"
#include "platform/linux/kernel/RootFolder.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace meridal {

/// Finds those whom the kernel killed for want of memory in its log's records. It writes two of each: one that names the
/// control group, and one of the kill itself.
class MemoryKillRecords {
public:
    /// Takes the text of a record of the kernel's own, and when it was written, µs since the boot.
    std::optional<MemoryKill> take(std::string_view text, std::uint64_t microseconds);
    /// Takes a record as /dev/kmsg gives it: "priority,number,microseconds,flags;text", and keys on lines of their own.
    /// Records that a program wrote are passed over, whatever they say.
    std::optional<MemoryKill> takeRecord(std::string_view record);

private:
    std::int32_t pid_ = 0; ///< whose control group this is
    std::string cgroup_;
    std::uint64_t number_ = 0; ///< of the latest
};

/// The kernel's log, from its oldest record on. Where it may be read itself, it is opened at the first question and kept open
/// then. Else it is what the system's journal has of it, by a journalctl that lives for one question. Where neither may be
/// read nobody is found. Main queue only.
class MemoryKillLog {
public:
    MemoryKillLog(Runtime& runtime, const std::filesystem::path& root);

    /// Those since the last question; see MachineCounters::memoryKills.
    void read(MachineCounters::Kills reply);

    static constexpr const char* programFile = "usr/bin/journalctl";
    static constexpr int mostJournalRecords = 10'000; ///< at the first question; the kernel itself holds fewer

private:
    struct JournalRead;

    std::vector<MemoryKill> readKernel();
    void readJournal(MachineCounters::Kills reply);

    Runtime& runtime_;
    const RootFolder root_;
    Descriptor log_;
    MemoryKillRecords records_;
    std::shared_ptr<Queue> queue_; ///< made when the journal is asked first
    std::string cursor_;           ///< of the journal's latest record that was read
    bool isReading_ = false;
    Lifetime lifetime_;
};

/// Whether this process may read the kernel's log in any of these ways.
bool canReadKernelLog(const RootFolder& root);

} // namespace meridal
