// SPDX-License-Identifier: Apache-2.0
#include "collectors/process/ProcessRanking.h"

#include "collectors/process/ProcessStatCollectorItem.h"

#include <algorithm>
#include <limits>

namespace meridal {

namespace {

constexpr auto noRow = std::numeric_limits<std::uint32_t>::max();

bool isShown(const ProcessStatCollectorItem& item, const ProcessView& view)
{
    return !view.shown || (!item.temporary && view.shown->contains(item.pid));
}

} // namespace

void ProcessRanking::sum(const ProcessTable& table, const ProcessView& view, std::span<const ProcessFigure> figures)
{
    figureCount_ = std::min(figures.size(), figures_.size());
    std::copy_n(figures.begin(), figureCount_, figures_.begin());
    rows_.clear();
    rows_.reserve(table.processes.size() + table.ended.size());
    if (view.grouped) {
        rowByPlace_.assign(table.processes.size() + table.ended.size(), noRow);
    }
    for (ProcessStatCollectorItem* item : table.processes) {
        add(*item, view);
    }
    if (figures_[0].ofEnded) {
        for (ProcessStatCollectorItem* item : table.ended) {
            add(*item, view);
        }
    }
}

void ProcessRanking::add(ProcessStatCollectorItem& item, const ProcessView& view)
{
    if (!isShown(item, view)) {
        return;
    }
    Row& row = view.grouped ? rows_[rowOf(item, view)] : rows_.emplace_back(Row{.item = &item});
    for (std::size_t i = 0; i < figureCount_; ++i) {
        const auto& value = item.figures.*figures_[i].value;
        row.totals[i] += value.value_or(0);
        row.known[i] |= value.has_value();
    }
}

/// The row of the one that heads its group, as far as groups are seen. Each way up is walked once: a line of parents may be as
/// long as any user likes.
std::uint32_t ProcessRanking::rowOf(ProcessStatCollectorItem& item, const ProcessView& view)
{
    ProcessStatCollectorItem* top = &item;
    while (rowByPlace_[top->place] == noRow && top->controller && isShown(*top->controller, view)) {
        top = top->controller;
    }
    std::uint32_t& row = rowByPlace_[top->place];
    if (row == noRow) {
        row = static_cast<std::uint32_t>(rows_.size());
        rows_.push_back({.item = top});
    }
    for (ProcessStatCollectorItem* below = &item; below != top; below = below->controller) {
        rowByPlace_[below->place] = row;
    }
    return row;
}

bool ProcessRanking::knows(std::size_t figure) const
{
    return std::any_of(rows_.begin(), rows_.end(), [figure](const Row& row) { return row.known[figure]; });
}

std::span<const ProcessRanking::Row* const> ProcessRanking::first(std::size_t figure, std::int32_t limit)
{
    const auto lastActive = figures_[figure].lastActive;
    keys_.clear();
    keys_.reserve(rows_.size());
    for (const Row& row : rows_) {
        const double total = row.known[figure] ? row.totals[figure] : -1;
        const double active = lastActive && total <= 0 ? row.item->activity.*lastActive : 0;
        keys_.push_back({total, active, row.item->place, static_cast<std::uint32_t>(keys_.size())});
    }
    const auto isBefore = [](const Key& a, const Key& b) {
        if (a.total != b.total) {
            return a.total > b.total;
        }
        return a.lastActive != b.lastActive ? a.lastActive > b.lastActive : a.place < b.place;
    };
    const auto count = std::min(keys_.size(), static_cast<std::size_t>(std::max(limit, 0)));
    if (count < keys_.size()) {
        std::partial_sort(keys_.begin(), keys_.begin() + static_cast<std::ptrdiff_t>(count), keys_.end(), isBefore);
    } else {
        std::sort(keys_.begin(), keys_.end(), isBefore);
    }
    first_.clear();
    for (std::size_t place = 0; place < count; ++place) {
        first_.push_back(&rows_[keys_[place].row]);
    }
    return first_;
}

} // namespace meridal
