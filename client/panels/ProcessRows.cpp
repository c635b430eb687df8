// SPDX-License-Identifier: Apache-2.0
#include "client/panels/ProcessRows.h"

#include "base/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace meridal {

namespace {

constexpr int wellShown = 4; // levels; farther down they are told apart by one column, for the names' sake
constexpr int deepest = 16;  // that is shown as such

const Value& processesOf(const Value& answer)
{
    static const Value none = Value::array();
    const Value* list = find(answer, "processes");
    return list && list->is_array() ? *list : none;
}

std::int64_t pidOf(const Value& row) { return integer(row, "pid").value_or(0); }

/// "  ▾ name": how deep it stands, and whether there is more below.
void indent(ShownProcess& process, int depth, const char* mark)
{
    const auto blanks = static_cast<std::size_t>(std::min(depth, deepest) + std::min(depth, wellShown));
    process.row["name"] = std::string(blanks, ' ') + mark + process.seen.name;
}

} // namespace

ShownProcess shownProcess(Value row)
{
    const std::int64_t pid = pidOf(row);
    const double start = number(row, "start").value_or(0);
    std::string name = printable(text(row, "name").value_or("?"));
    return {.row = std::move(row),
        .identity = fmt::format("{}:{:.2f}", pid, start),
        .seen = {.pid = pid, .started = start, .name = std::move(name)}};
}

void ProcessRows::take(const Value& answer, bool isChange)
{
    if (!isChange) {
        rows_.clear();
        order_.clear();
    }
    isKnown_ = true;
    total_ = integer(answer, "total").value_or(total_);
    for (const Value& row : processesOf(answer)) {
        rows_[pidOf(row)] = row;
        if (!isChange) {
            order_.push_back(pidOf(row));
        }
    }
    const auto pids = [&answer](std::string_view key) {
        std::vector<std::int64_t> list;
        const Value* told = find(answer, key);
        for (const Value& pid : told && told->is_array() ? *told : Value::array()) {
            list.push_back(pid.is_number() ? pid.get<std::int64_t>() : 0);
        }
        return list;
    };
    for (const std::int64_t pid : pids("gone")) {
        rows_.erase(pid);
    }
    if (const Value* order = find(answer, "order"); order && order->is_array()) {
        order_ = pids("order");
    }
    std::erase_if(order_, [this](std::int64_t pid) { return !rows_.contains(pid); });
}

void ProcessRows::takeMembers(std::int64_t group, const Value& answer) { members_[group] = processesOf(answer); }

std::vector<ShownProcess> ProcessRows::shown(Shape shape, const std::set<std::string>& turned) const
{
    if (shape == Shape::Tree) {
        return tree(turned);
    }
    std::vector<ShownProcess> shown;
    for (const std::int64_t pid : order_) {
        shown.push_back(shownProcess(rows_.at(pid)));
        if (shape == Shape::Flat) {
            continue;
        }
        const bool hasMore = integer(shown.back().row, "processes").value_or(1) > 1;
        const bool isOpen = turned.contains(shown.back().identity);
        indent(shown.back(), 0, !hasMore ? "  " : isOpen ? "▾ " : "▸ ");
        const auto members = isOpen ? members_.find(pid) : members_.end();
        for (const Value& member : members != members_.end() ? members->second : Value::array()) {
            ShownProcess each = shownProcess(member);
            indent(each, 1, "  ");
            each.identity += " of " + std::to_string(pid); // the head is a member, too
            shown.push_back(std::move(each));
        }
    }
    return shown;
}

std::vector<ShownProcess> ProcessRows::tree(const std::set<std::string>& closed) const
{
    Children children;
    std::vector<std::int64_t> roots;
    for (const std::int64_t pid : order_) {
        const std::int64_t parent = integer(rows_.at(pid), "parent").value_or(0);
        (parent != pid && rows_.contains(parent) ? children[parent] : roots).push_back(pid);
    }
    std::vector<ShownProcess> shown;
    std::set<std::int64_t> met;
    for (const std::int64_t root : roots) {
        addBranch(shown, met, children, root, 0, closed);
    }
    return shown;
}

void ProcessRows::addBranch(std::vector<ShownProcess>& shown, std::set<std::int64_t>& met, const Children& children,
    std::int64_t pid, int depth, const std::set<std::string>& closed) const
{
    constexpr int mostDepth = 200; // a chain that long is an attack on whoever draws it
    if (depth > mostDepth || !met.insert(pid).second) {
        return;
    }
    ShownProcess process = shownProcess(rows_.at(pid));
    const auto below = children.find(pid);
    const bool isClosed = closed.contains(process.identity);
    indent(process, depth, below == children.end() ? "  " : isClosed ? "▸ " : "▾ ");
    shown.push_back(std::move(process));
    if (below == children.end() || isClosed) {
        return;
    }
    for (const std::int64_t child : below->second) {
        addBranch(shown, met, children, child, depth + 1, closed);
    }
}

} // namespace meridal
