// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collectors/process/GroupTable.h"
#include "collectors/process/ProcessNames.h"
#include "collectors/process/ProcessStatCollector.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace meridal {

struct Context;

/// What the group of a process is known by over restarts and reboots. Never a pid, nor a name that is made up at each start.
class GroupNaming {
public:
    GroupNaming(Context& context, ProcessStatCollector& processes) : context_(context), processes_(processes) { }

    /// By the head of the group: the unit or container that it stands for, else the bundle, else the program, else its name.
    GroupName of(ProcessStatCollectorItem& head);
    /// Of a program that has ended, by the name that it had: where one of that name was seen to lie, or where the system keeps
    /// such.
    GroupName ofEnded(std::string_view name, std::optional<std::uint32_t> owner);
    /// Of a unit that takes in all that runs in it; absent for others.
    std::optional<GroupName> ofUnit(const ProcessUnit& unit, std::optional<std::uint32_t> owner);

private:
    std::string programOf(const ProcessStatCollectorItem& head);

    Context& context_;
    ProcessStatCollector& processes_;
    ProcessNameCache programs_; ///< paths by the name in the table; empty: none was found
};

} // namespace meridal
