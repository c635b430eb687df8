// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/ProcessSource.h"
#include "platform/linux/kernel/ProcFolder.h"
#include "platform/linux/processes/CgroupUnits.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace meridal {

/// Says of the processes of each pass which units they are in, without reading a file of each.
///
/// Where the records tell control groups, a move shows by itself, and one process of each group is read if the unified
/// hierarchy decides, else each once. Where they do not, the unit of a process is read when it appears, and again after 1,
/// 2, 4 and so on passes, up to some hundreds: systemd moves a process right after its start (a desktop puts what it
/// launched into a scope of its own), and hardly ever later.
class ProcessUnits {
public:
    /// `units`: shared with other readers; null for a table of its own.
    ProcessUnits(ProcFolder& folder, std::shared_ptr<CgroupUnits> units, const std::filesystem::path& root);

    /// The control groups that a process is in; 0 where it is not known.
    struct Place {
        std::uint64_t unified = 0; ///< inode number of its folder in the unified hierarchy
        std::uint64_t all = 0;     ///< stands for its groups in all hierarchies
        bool operator==(const Place&) const = default;
    };

    /// Fills ProcessRecord::unit of a pass's rows, ascending by pid. `places`: of each row, or none at all.
    void fill(std::span<ProcessRecord> rows, std::span<const Place> places);

    const std::shared_ptr<CgroupUnits>& units() const { return units_; }
    std::string name(const ProcessUnit& unit) const { return units_->name(unit); }
    std::string identity(const ProcessUnit& unit) const { return units_->identity(unit); }
    std::optional<std::string> bundleLocation(std::int32_t pid, const ProcessUnit& unit) const
    {
        return units_->bundleLocation(*folder_, pid, unit);
    }

private:
    struct Member {
        std::int32_t pid = 0;
        std::uint8_t readings = 0;
        ProcessUnit unit = {};
        std::uint64_t start = 0;
        Place place = {};
        std::uint64_t next = 0; ///< pass at which it is read again
    };
    void look(Member& member);
    void forgetUnused();

    ProcFolder* folder_;
    std::shared_ptr<CgroupUnits> units_;
    std::uint64_t pass_ = 0;
    std::uint64_t ticksPerSecond_;
    std::size_t mostUnits_;
    std::uint64_t generation_ = 0; ///< of units_, as members_ know it
    std::vector<Member> members_;  ///< ascending by pid
};

} // namespace meridal
