// SPDX-License-Identifier: Apache-2.0
#include "collectors/process/ProcessTableQuery.h"

#include "base/Text.h"
#include "collectors/process/ProcessStatCollectorItem.h"

#include <algorithm>
#include <array>
#include <limits>
#include <utility>

namespace meridal {

namespace {

constexpr auto noTableRow = std::numeric_limits<std::uint32_t>::max();

bool mayBeSeen(const ProcessStatCollectorItem& item, const ProcessView& view)
{
    return !view.shown || view.shown->contains(item.pid);
}

char smallLetter(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; }

/// What costs least first.
bool passesFilter(ProcessStatCollectorItem& item, const ProcessFilter& filter, ProcessTexts& texts)
{
    if (filter.pid && item.pid != *filter.pid) {
        return false;
    }
    if (!filter.user.empty()
        && (!item.user() || (texts.user(item) != filter.user && std::to_string(*item.user()) != filter.user))) {
        return false;
    }
    if (!filter.name.matches(item.name())) {
        return false;
    }
    if (!filter.unit.isEmpty() && !filter.unit.matches(texts.unit(item))) {
        return false;
    }
    if (!filter.command.isEmpty() && !filter.command.matches(texts.command(item))) {
        return false;
    }
    return filter.any.isEmpty() || filter.any.matches(item.name()) || filter.any.matches(texts.command(item));
}

/// Whether anything in it says who heads whose group, which takes a walk up from everybody.
bool isAboutGroups(const ProcessTableQuery& query)
{
    const auto& columns = query.columns;
    return query.grouped || query.group || query.sort == ProcessColumn::Group
        || std::find(columns.begin(), columns.end(), ProcessColumn::Group) != columns.end();
}

std::string tableText(ProcessStatCollectorItem& item, ProcessColumn column, bool grouped, ProcessTexts& texts)
{
    switch (column) {
    case ProcessColumn::User:
        return texts.user(item);
    case ProcessColumn::Name:
        return texts.name(item, grouped);
    case ProcessColumn::Unit:
        return texts.unit(item);
    case ProcessColumn::Command:
        return std::string(texts.command(item));
    case ProcessColumn::State:
        return std::string(nameOfState(item));
    default:
        return {};
    }
}

} // namespace

TextFilter::TextFilter(std::string_view part) : part_(lowercase(part)) { }

bool TextFilter::matches(std::string_view text) const
{
    if (pattern_) {
        return pattern_->isFoundIn(text);
    }
    return std::search(text.begin(), text.end(), part_.begin(), part_.end(),
               [](char given, char wanted) { return smallLetter(given) == wanted; })
        != text.end()
        || part_.empty();
}

void ProcessSelection::select(const ProcessTable& table, const ProcessView& view, const ProcessTableQuery& query,
    const TableMoment& moment, ProcessTexts& texts)
{
    moment_ = moment;
    grouped_ = query.grouped;
    rows_.clear();
    shown_.clear();
    sums_.clear();
    heads_.clear();
    if (isAboutGroups(query)) {
        findHeads(table, view);
    }
    query.grouped ? gatherGroups(table, query, texts) : gather(table, view, query, texts);
    total_ = rows_.size();
    traitsOf(query.sort).isText ? sortByText(query, texts) : sortByNumber(table, query);
    if (query.grouped) {
        sumGroups(table, query);
    }
}

/// Each way up is walked once: a line of parents may be as long as any user likes.
void ProcessSelection::findHeads(const ProcessTable& table, const ProcessView& view)
{
    heads_.assign(table.processes.size(), nullptr);
    for (ProcessStatCollectorItem* item : table.processes) {
        if (!mayBeSeen(*item, view)) {
            continue;
        }
        ProcessStatCollectorItem* top = item;
        while (!heads_[top->place] && top->controller && !top->controller->temporary
            && mayBeSeen(*top->controller, view)) {
            top = top->controller;
        }
        ProcessStatCollectorItem* head = heads_[top->place] ? heads_[top->place] : top;
        for (ProcessStatCollectorItem* below = item; below != top; below = below->controller) {
            heads_[below->place] = head;
        }
        heads_[top->place] = head;
    }
}

void ProcessSelection::gather(
    const ProcessTable& table, const ProcessView& view, const ProcessTableQuery& query, ProcessTexts& texts)
{
    const bool isFiltered = !query.filter.isEmpty();
    rows_.reserve(table.processes.size());
    for (ProcessStatCollectorItem* item : table.processes) {
        const bool isWanted = mayBeSeen(*item, view) && (!query.group || heads_[item->place]->pid == *query.group);
        if (isWanted && (!isFiltered || passesFilter(*item, query.filter, texts))) {
            rows_.push_back({.item = item});
        }
    }
}

void ProcessSelection::gatherGroups(const ProcessTable& table, const ProcessTableQuery& query, ProcessTexts& texts)
{
    const bool isFiltered = !query.filter.isEmpty();
    rowByPlace_.assign(table.processes.size(), noTableRow);
    for (ProcessStatCollectorItem* item : table.processes) {
        ProcessStatCollectorItem* head = heads_[item->place];
        if (!head || rowByPlace_[head->place] != noTableRow || (query.group && head->pid != *query.group)) {
            continue;
        }
        if (!isFiltered || passesFilter(*item, query.filter, texts)) {
            rowByPlace_[head->place] = static_cast<std::uint32_t>(rows_.size());
            rows_.push_back({.item = head, .number = rowByPlace_[head->place]});
        }
    }
}

/// Whose figure is not known stands behind all others, whichever way.
void ProcessSelection::sortByNumber(const ProcessTable& table, const ProcessTableQuery& query)
{
    constexpr double unknown = std::numeric_limits<double>::infinity();
    const bool isSum = grouped_ && traitsOf(query.sort).isSum;
    // Small numbers first, so that largest first is the figure with its sign changed.
    const double sign =
        query.isReversed != (query.sort == ProcessColumn::Pid || query.sort == ProcessColumn::Parent) ? 1 : -1;
    keys_.clear();
    keys_.reserve(rows_.size());
    for (const Row& row : rows_) {
        const bool isGroup = query.sort == ProcessColumn::Group;
        const auto figure = isGroup ? std::optional<double>(heads_[row.item->place]->pid)
            : isSum                 ? std::nullopt
                                    : figureOf(*row.item, query.sort, moment_);
        keys_.push_back({figure ? *figure * sign : unknown, row.item->place, static_cast<std::uint32_t>(keys_.size())});
    }
    for (const ProcessStatCollectorItem* item :
        isSum ? table.processes : std::span<ProcessStatCollectorItem* const>()) {
        const ProcessStatCollectorItem* head = heads_[item->place];
        const std::uint32_t row = head ? rowByPlace_[head->place] : noTableRow;
        if (const auto figure = row == noTableRow ? std::nullopt : figureOf(*item, query.sort, moment_)) {
            keys_[row].figure = (keys_[row].figure == unknown ? 0 : keys_[row].figure) + *figure * sign;
        }
    }
    cut(keys_, query, [](const Key& one, const Key& other) {
        return one.figure != other.figure ? one.figure < other.figure : one.place < other.place;
    });
}

/// What has no text stands behind, whichever way.
void ProcessSelection::sortByText(const ProcessTableQuery& query, ProcessTexts& texts)
{
    textKeys_.clear();
    for (const Row& row : rows_) {
        textKeys_.push_back({lowercase(tableText(*row.item, query.sort, grouped_, texts)), row.item->place,
            static_cast<std::uint32_t>(textKeys_.size())});
    }
    cut(textKeys_, query, [isReversed = query.isReversed](const TextKey& one, const TextKey& other) {
        if (one.text.empty() != other.text.empty()) {
            return other.text.empty();
        }
        if (const int order = one.text.compare(other.text); order != 0) {
            return isReversed ? order > 0 : order < 0;
        }
        return one.place < other.place;
    });
}

/// Only what is shown is put in order.
template <typename Keys, typename IsBefore>
void ProcessSelection::cut(Keys& keys, const ProcessTableQuery& query, IsBefore isBefore)
{
    const auto at = [&keys](std::size_t place) { return keys.begin() + static_cast<std::ptrdiff_t>(place); };
    const std::size_t first = std::min(query.offset, keys.size());
    const std::size_t end = first + std::min(query.limit, keys.size() - first);
    if (first > 0 && first < keys.size()) {
        std::nth_element(keys.begin(), at(first), keys.end(), isBefore);
    }
    std::partial_sort(at(first), at(end), keys.end(), isBefore);
    for (std::size_t place = first; place < end; ++place) {
        shown_.push_back(rows_[keys[place].row]);
    }
}

/// All figures of the groups that are shown.
void ProcessSelection::sumGroups(const ProcessTable& table, const ProcessTableQuery& query)
{
    std::vector<std::uint32_t> shownByRow(rows_.size(), noTableRow);
    for (Row& row : shown_) {
        shownByRow[row.number] = static_cast<std::uint32_t>(&row - shown_.data());
        row.number = shownByRow[row.number];
    }
    sums_.assign(shown_.size(), {});
    for (const ProcessStatCollectorItem* item : table.processes) {
        const ProcessStatCollectorItem* head = heads_[item->place];
        const std::uint32_t row = head ? rowByPlace_[head->place] : noTableRow;
        const std::uint32_t shown = row == noTableRow ? noTableRow : shownByRow[row];
        if (shown == noTableRow) {
            continue;
        }
        for (const ProcessColumn column : query.columns) {
            const auto figure = traitsOf(column).isSum ? figureOf(*item, column, moment_) : std::nullopt;
            if (figure) {
                auto& sum = sums_[shown].at(static_cast<std::size_t>(column));
                sum = sum.value_or(0) + *figure;
            }
        }
    }
}

std::optional<double> ProcessSelection::figure(const Row& row, ProcessColumn column) const
{
    if (column == ProcessColumn::Group) {
        return heads_.empty() ? std::nullopt : std::optional<double>(heads_[row.item->place]->pid);
    }
    const bool isSum = grouped_ && traitsOf(column).isSum;
    return isSum ? sums_[row.number].at(static_cast<std::size_t>(column)) : figureOf(*row.item, column, moment_);
}

} // namespace meridal
