// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/SlowWork.h"
#include "platform/linux/kernel/ProcFolder.h"
#include "platform/linux/kernel/RootFolder.h"
#include "platform/linux/processes/CgroupPath.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>

namespace meridal {

/// The units that processes are in, numbered, and what is known of each. May serve several readers of processes.
class CgroupUnits {
public:
    /// `root` is the folder that holds sys, and the files in which runtimes keep names. `work`: where those are read, which
    /// may be large or on a disk that hangs; a thread of its own when null.
    explicit CgroupUnits(const std::filesystem::path& root, std::unique_ptr<SlowWork> work = nullptr);

    struct Reading {
        ProcessUnit unit = {};
        bool ofCgroup = false; ///< its group in the unified hierarchy decides, and ofCgroup() knows it from here on
    };
    /// Reads /proc/PID/cgroup. `cgroup`: inode number of the process's folder in the unified hierarchy, 0 if unknown.
    /// Absent when the file cannot be read.
    std::optional<Reading> read(ProcFolder& processes, std::int32_t pid, std::uint64_t cgroup);
    /// The unit of who is in a control group of the unified hierarchy, as far as that has been read.
    std::optional<ProcessUnit> ofCgroup(std::uint64_t cgroup) const;

    /// The unit of who is in a control group that may be gone. `path`: in the unified hierarchy, or the end of it. Absent when
    /// it tells nothing.
    std::optional<ProcessUnit> at(std::string_view path);

    /// See ProcessSource::unitIdentity().
    std::string identity(const ProcessUnit& unit) const;
    /// A program of that name in the folders in which the system keeps those of everybody.
    std::optional<std::string> programNamed(std::string_view name) const;
    /// What people call a unit; empty where the name of its first process is as good. The name of a container is looked for
    /// in files, for a later pass to give, and again some more times when they do not have it yet.
    std::string name(const ProcessUnit& unit);
    /// The .desktop file of an application ("firefox.desktop"), else the path of the program.
    std::optional<std::string> bundleLocation(ProcFolder& processes, std::int32_t pid, const ProcessUnit& unit);

    std::size_t size() const { return units_.size() + byCgroup_.size(); }
    /// To be called before a pass: takes up names that were found, and what looking for others costs is bounded by pass.
    void beginPass();
    /// How often some were forgotten: numbers that were kept elsewhere may be nobody's since.
    std::uint64_t generation() const { return generation_; }
    /// Forgets all others. They get other numbers if they are met again.
    void keepOnly(const std::unordered_set<std::uint32_t>& numbers);

private:
    struct Known {
        ProcessUnit unit = {};
        CgroupUnit what;
        std::uint32_t nameLookups = 0;
        bool isLookedFor = false;                    ///< right now
        std::optional<std::string> desktopFile = {}; ///< empty: it has none; absent: not looked for
    };
    struct FoundNames; ///< shared with lookups, which may never come back
    void lookForName(Known& known);
    ProcessUnit unitFor(CgroupUnit&& what);
    bool isFolder(std::uint64_t cgroup, std::string_view path) const;
    const std::string& desktopFile(Known& known) const;

    RootFolder root_;
    std::uint32_t lastNumber_ = 0;
    std::uint64_t generation_ = 0;
    int lookups_ = 0; ///< of names, in this pass
    std::unique_ptr<SlowWork> work_;
    std::shared_ptr<FoundNames> found_;
    std::unordered_map<std::string, std::uint32_t> numbers_; ///< by key
    std::unordered_map<std::uint32_t, Known> units_;
    std::unordered_map<std::uint64_t, ProcessUnit> byCgroup_;
};

} // namespace meridal
