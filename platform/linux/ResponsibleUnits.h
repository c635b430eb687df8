#pragma once

#include "platform/host/ProcessSource.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

namespace meridal {

/// Which process stands for the systemd service or scope that another one lives in: the oldest of that unit.
///
/// The unit of every process is kept from pass to pass and read again from time to time only: systemd moves a process
/// right after its start (a desktop puts what it launched into a scope of its own), and hardly ever later.
class ResponsibleUnits {
public:
    /// The unit's path of a process, empty when it has none.
    using ReadUnit = std::function<std::string_view(std::int32_t pid)>;

    explicit ResponsibleUnits(ReadUnit readUnit) : readUnit_(std::move(readUnit)) { }

    /// The answer for one process, given the rows of a pass, ascending by pid, and that pass's number.
    std::optional<std::int32_t> responsiblePid(
        std::int32_t pid, std::span<const ProcessRecord> rows, std::uint64_t pass);

private:
    using UnitNumber = std::uint32_t; ///< 0: lives in none
    struct Member {
        std::int32_t pid = 0;
        std::uint64_t start = 0;
        UnitNumber unit = 0;
        std::uint64_t readAt = 0; ///< pass
        bool settled = false;     ///< read at two passes or more
    };
    struct Oldest {
        std::int32_t pid = 0; ///< 0: nobody seen
        std::uint64_t start = 0;
    };

    void bringUpToDate(std::span<const ProcessRecord> rows, std::uint64_t pass);
    bool isStale(const Member& member, std::uint64_t pass) const;
    UnitNumber numberOf(std::string_view unit);

    ReadUnit readUnit_;
    std::unordered_map<std::string, UnitNumber> numbers_;
    std::vector<Member> members_; ///< ascending by pid
    std::vector<Member> previous_;
    std::vector<Oldest> oldest_; ///< by unit number
    std::uint64_t pass_ = 0;     ///< that the two tell of; 0 before the first
};

} // namespace meridal
