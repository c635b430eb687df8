// SPDX-License-Identifier: Apache-2.0
#include "collectors/process/ProcessRanking.h"

#include "base/Prefetch.h"
#include "collectors/process/ProcessStatCollectorItem.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

namespace meridal {

namespace {

constexpr double noRow = -std::numeric_limits<double>::infinity();
constexpr auto noTop = std::numeric_limits<std::uint32_t>::max();

bool isShown(const ProcessStatCollectorItem& item, const ProcessView& view)
{
    return !view.shown || (!item.temporary && view.shown->contains(item.pid));
}

/// While the next ones are on their way from memory.
template <typename Take>
void forEachOf(std::span<ProcessStatCollectorItem* const> items, Take take)
{
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (i + prefetchDistance < items.size()) {
            prefetch(items[i + prefetchDistance]->figures);
            prefetch(items[i + prefetchDistance]->place);
        }
        take(*items[i]);
    }
}

} // namespace

void ProcessRanking::sum(const ProcessTable& table, const ProcessView& view, std::span<const ProcessFigure> figures)
{
    table_ = table;
    figureCount_ = std::min(figures.size(), figures_.size());
    std::copy_n(figures.begin(), figureCount_, figures_.begin());
    const auto ended = figures_[0].ofEnded ? table.ended : std::span<Item* const>();
    const std::size_t places = table.processes.size() + ended.size();
    if (!view.grouped && !view.shown) { // everybody has a row
        places_.resize(places);
        std::iota(places_.begin(), places_.end(), 0U);
        for (std::size_t i = 0; i < figureCount_; ++i) {
            totals_[i].resize(places);
            double* total = totals_[i].data();
            for (const auto& items : {table.processes, ended}) {
                forEachOf(items, [&, which = figures_[i]](const Item& item) { *total++ = *item.figure(which); });
            }
        }
        return;
    }
    for (std::size_t i = 0; i < figureCount_; ++i) {
        totals_[i].assign(places, noRow);
    }
    tops_.assign(table.processes.size() + table.ended.size(), noTop);
    for (const auto& items : {table.processes, ended}) {
        forEachOf(items, [&](const Item& item) { add(item, view); });
    }
    keepRows();
}

/// Leaves those that are listed, in table order.
void ProcessRanking::keepRows()
{
    places_.clear();
    std::uint32_t place = 0;
    for (const double total : totals_[0]) {
        if (total != noRow) {
            places_.push_back(place);
        }
        ++place;
    }
    for (std::size_t i = 0; i < figureCount_; ++i) {
        std::transform(places_.begin(), places_.end(), totals_[i].begin(),
            [&totals = totals_[i]](std::uint32_t at) { return totals[at]; });
        totals_[i].resize(places_.size());
    }
}

void ProcessRanking::add(const Item& item, const ProcessView& view)
{
    if (!isShown(item, view)) {
        return;
    }
    const std::uint32_t place = view.grouped ? topOf(item, view) : item.place;
    for (std::size_t i = 0; i < figureCount_; ++i) {
        const OptionalDouble figure = item.figure(figures_[i]);
        double& total = *(totals_[i].data() + place);
        if (!(total >= 0)) {
            total = figure || total == noRow ? *figure : total;
        } else if (figure) {
            total += *figure;
        }
    }
}

/// The place of the one that heads its group, as far as groups are seen. Each way up is walked once: a line of parents may be
/// as long as any user likes.
std::uint32_t ProcessRanking::topOf(const Item& item, const ProcessView& view)
{
    std::uint32_t* const tops = tops_.data();
    const Item* at = &item;
    while (tops[at->place] == noTop && at->controller && isShown(*at->controller, view)) {
        at = at->controller;
    }
    const std::uint32_t top = tops[at->place] == noTop ? at->place : tops[at->place];
    for (const Item* below = &item; below != at; below = below->controller) {
        tops[below->place] = top;
    }
    return tops[at->place] = top;
}

bool ProcessRanking::knows(std::size_t figure) const
{
    return std::any_of(totals_[figure].begin(), totals_[figure].end(), [](double total) { return total >= 0; });
}

/// Most processes are idle, and few are asked for: only those that are active are compared by what they use, and idle ones are
/// looked at where there is room for them.
std::span<const ProcessRanking::Row> ProcessRanking::first(std::size_t figure, std::int32_t limit)
{
    const auto most = static_cast<std::size_t>(std::max(limit, 0));
    first_.clear();
    first_.reserve(std::min(most, totals_[figure].size()));
    takeActive(figure);
    takeSorted(most);
    if (first_.size() < most) {
        takeIdle(figure, most);
    }
    return first_;
}

void ProcessRanking::takeActive(std::size_t figure)
{
    keys_.clear();
    std::uint32_t row = 0;
    for (const double total : totals_[figure]) {
        if (total > 0) {
            keys_.push_back({total, row});
        }
        ++row;
    }
}

/// Those that use nothing, and those of whom nothing is known behind them. Who never did anything comes in table order.
void ProcessRanking::takeIdle(std::size_t figure, std::size_t limit)
{
    const auto lastActive = figures_[figure].lastActive;
    for (const bool isKnown : {true, false}) {
        const auto forEach = [&, isKnown](auto take) {
            std::uint32_t row = 0;
            for (const double total : totals_[figure]) {
                if (isKnown ? total == 0 : std::isnan(total)) {
                    take(row, lastActive ? itemOf(row).activity().*lastActive : 0);
                }
                ++row;
            }
        };
        keys_.clear();
        if (lastActive) {
            forEach([this](std::uint32_t row, double activeAt) {
                if (activeAt > 0) {
                    keys_.push_back({activeAt, row});
                }
            });
            takeSorted(limit);
        }
        forEach([this, limit](std::uint32_t row, double activeAt) {
            if (!(activeAt > 0) && first_.size() < limit) {
                takeRow(row);
            }
        });
    }
}

/// Appends the first of the keys, up to so many rows in all.
void ProcessRanking::takeSorted(std::size_t limit)
{
    const auto isBefore = [](const Key& a, const Key& b) {
        return a.value != b.value ? a.value > b.value : a.row < b.row;
    };
    const auto end = keys_.begin() + static_cast<std::ptrdiff_t>(std::min(keys_.size(), limit - first_.size()));
    if (end != keys_.end()) {
        std::partial_sort(keys_.begin(), end, keys_.end(), isBefore);
    } else {
        std::sort(keys_.begin(), end, isBefore);
    }
    std::for_each(keys_.begin(), end, [this](const Key& key) { takeRow(key.row); });
}

void ProcessRanking::takeRow(std::uint32_t row)
{
    Row& taken = first_.emplace_back();
    taken.item = &itemOf(row);
    for (std::size_t i = 0; i < figureCount_; ++i) {
        taken.totals[i] = totals_[i][row];
    }
}

ProcessStatCollectorItem& ProcessRanking::itemOf(std::uint32_t row) const
{
    const std::uint32_t place = places_[row];
    const std::size_t living = table_.processes.size();
    return *(place < living ? table_.processes[place] : table_.ended[place - living]);
}

} // namespace meridal
