// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"
#include "client/panels/PanelWish.h"

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace meridal {

/// A row of the list as it is shown.
struct ShownProcess {
    Value row;            ///< as in processes.table; its "name" stands in the tree
    std::string identity; ///< its pid and start: of no other process ever
    SeenProcess seen;
};

/// The processes as the daemon tells them, first all, then what changes; flat, as a tree, or by application with those that are open.
class ProcessRows {
public:
    enum class Shape : std::uint8_t { Flat, Tree, Groups };

    /// An answer of processes.watch, or one of its notifications.
    void take(const Value& answer, bool isChange);
    /// The members of an application: an answer of processes.table.
    void takeMembers(std::int64_t group, const Value& answer);
    void clear() { *this = {}; }

    bool isKnown() const { return isKnown_; }
    std::int64_t total() const { return total_; } ///< also those that are not told

    /// `turned`: whose branch is closed (Tree), or whose application is open (Groups), by identity.
    std::vector<ShownProcess> shown(Shape shape, const std::set<std::string>& turned) const;

private:
    using Children = std::map<std::int64_t, std::vector<std::int64_t>>;

    std::vector<ShownProcess> tree(const std::set<std::string>& closed) const;
    void addBranch(std::vector<ShownProcess>& shown, std::set<std::int64_t>& met, const Children& children,
        std::int64_t pid, int depth, const std::set<std::string>& closed) const;

    bool isKnown_ = false;
    std::int64_t total_ = 0;
    std::vector<std::int64_t> order_; ///< pids
    std::map<std::int64_t, Value> rows_;
    std::map<std::int64_t, Value> members_; ///< arrays of rows, by the pid of the group's head
};

/// Who a row is about.
ShownProcess shownProcess(Value row);

} // namespace meridal
