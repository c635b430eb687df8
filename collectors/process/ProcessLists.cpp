// SPDX-License-Identifier: Apache-2.0
// The lists that clients get of rankings. They are written as JSON at once: as dictionaries that are serialised
// afterwards they would be the better part of a refresh.

#include "base/Prefetch.h"
#include "base/Text.h"
#include "base/Value.h"
#include "collectors/process/ProcessStatCollector.h"
#include "wire/RequestKey.h"

#include <fmt/format.h>

#include <array>
#include <charconv>
#include <limits>
#include <string>
#include <utility>

namespace meridal {

namespace {

/// Bytes that most entries do not exceed.
constexpr std::size_t usualEntry = 80;
/// With their lengths, as what most entries end with.
constexpr std::string_view endOfEntry = "},";
constexpr std::string_view idleScore = R"(,"score":"0.00","bundle":"")";
/// Processes that one question may have looked for beyond the table.
constexpr int mostUnseen = 256;

/// `name` as it stands in an entry: R"(,"name":)".
void appendMember(std::string& json, std::string_view name, std::string_view text)
{
    json += name;
    appendText(json, text);
}

void appendMember(std::string& json, std::string_view name, double number)
{
    json += name;
    appendNumber(json, number);
}

/// The beginning of an entry. There may be thousands of them, and what is put together first is copied once.
void appendKey(std::string& json, std::int32_t pid)
{
    constexpr std::string_view before = R"({"key":")";
    constexpr std::string_view behind = R"(","name":)";
    constexpr std::size_t mostDigits = 11;
    std::array<char, before.size() + mostDigits + behind.size()> text{};
    before.copy(text.data(), before.size());
    char* end = std::to_chars(text.data() + before.size(), text.data() + before.size() + mostDigits, pid).ptr;
    end += behind.copy(end, behind.size());
    json.append(text.data(), static_cast<std::size_t>(end - text.data()));
}

/// What comes behind the last list.
std::string closed(std::string json, RequestKey list)
{
    json += fmt::format(R"("type":"{}"}})", mask(list));
    return json;
}

/// A client's number as a pid; absent for anything that cannot be one.
std::optional<std::int32_t> pidFrom(const Value& number)
{
    constexpr double largest = std::numeric_limits<std::int32_t>::max();
    if (!number.is_number()) {
        return std::nullopt;
    }
    const auto pid = number.get<double>(); // exact for every pid
    return pid >= 0 && pid <= largest ? std::optional(static_cast<std::int32_t>(pid)) : std::nullopt;
}

} // namespace

struct ProcessStatCollector::ListPair {
    RequestKey key;
    std::array<const char*, 2> names;
    std::array<std::string_view, 2> members; ///< of an entry
    std::array<ProcessFigure, 2> figures;
};

template <typename AppendFigures>
void ProcessStatCollector::appendList(std::string& json, const char* name, const ProcessView& view, std::size_t figure,
    std::int32_t limit, AppendFigures appendFigures)
{
    const auto rows = ranking_.first(figure, limit);
    json.reserve(json.size() + rows.size() * usualEntry); // a list of everybody is not copied as it grows
    json += fmt::format(R"("{}":[)", name);
    for (std::size_t i = 0; i < rows.size(); ++i) {
        if (i + prefetchDistance < rows.size()) {
            prefetch(*rows[i + prefetchDistance].item);
        }
        const ProcessRanking::Row& row = rows[i];
        appendKey(json, row.item->pid);
        appendText(json, sharingNameForProcess(*row.item, view.grouped));
        appendFigures(json, row);
        json += endOfEntry;
    }
    if (!rows.empty()) {
        json.pop_back();
    }
    json += "],";
}

std::string ProcessStatCollector::cpuProcesses(const ProcessView& view)
{
    ranking_.sum(table(), view, {&ProcessFigure::cpu, 1});
    std::string json = "{";
    appendList(json, "processes", view, 0, counts_.sharingProcessCPUCount, [](std::string& entry, const auto& row) {
        appendMember(entry, R"(,"c":)", fixed2(row.totals[0].value_or(0)));
    });
    return closed(std::move(json), RequestKey::Cpu);
}

std::string ProcessStatCollector::memoryProcesses(const ProcessView& view)
{
    ranking_.sum(table(), view, std::array{ProcessFigure::memory, ProcessFigure::memoryFootprint});
    std::string json = "{";
    appendList(json, "processes", view, 0, counts_.sharingProcessMemoryCount, [](std::string& entry, const auto& row) {
        appendMember(entry, R"(,"m":)", fixed0(row.totals[0].value_or(0)));
    });
    if (rules_.listsFootprint) {
        appendList(json, "processes-footprint", view, 1, counts_.sharingProcessMemoryCount,
            [](std::string& entry, const auto& row) {
                appendMember(entry, R"(,"m":)", fixed0(row.totals[1].value_or(0)));
            });
    }
    return closed(std::move(json), RequestKey::Memory);
}

std::string ProcessStatCollector::powerProcesses(const ProcessView& view)
{
    ranking_.sum(table(), view, {&ProcessFigure::power, 1});
    std::string json = "{";
    appendList(json, "processes", view, 0, ranking_.knows(0) ? counts_.sharingProcessPowerCount : 0,
        [this](std::string& entry, const auto& row) {
            loadBundleLocation(*row.item);
            if (!(*row.totals[0] > 0) && row.item->knownExtras().bundleLocation.empty()) { // most processes
                entry += idleScore;
                return;
            }
            appendMember(entry, R"(,"score":)", fixed2(row.totals[0].value_or(0)));
            appendMember(entry, R"(,"bundle":)", row.item->knownExtras().bundleLocation);
        });
    return closed(std::move(json), RequestKey::Energy);
}

/// Both lists of a pair, of the figures that were added up.
std::string ProcessStatCollector::appendPair(
    const ListPair& pair, const ProcessView& view, std::int32_t limit, PairEntries entries)
{
    std::string json = "{";
    for (const std::size_t list : {0U, 1U}) {
        appendList(json, pair.names[list], view, list, limit, [&](std::string& entry, const auto& row) {
            for (const std::size_t figure : {0U, 1U}) {
                if (figure == list || entries == PairEntries::BothFigures) {
                    appendMember(entry, pair.members[figure], row.totals[figure].value_or(0));
                }
            }
            if (entries == PairEntries::FigureAndTime) {
                appendMember(entry, R"(,"t":)", row.item->activity().*pair.figures[list].lastActive);
            }
        });
    }
    return json;
}

std::string ProcessStatCollector::diskList(const ProcessView& view, PairEntries entries)
{
    constexpr ListPair pair{RequestKey::Disk, {"read", "write"}, {R"(,"r":)", R"(,"w":)"},
        {ProcessFigure::diskRead, ProcessFigure::diskWrite}};
    ranking_.sum(table(), view, pair.figures);
    const bool isKnown = ranking_.knows(0) || ranking_.knows(1);
    return closed(appendPair(pair, view, isKnown ? counts_.sharingProcessDiskActivityCount : 0, entries), pair.key);
}

std::string ProcessStatCollector::diskActivityProcesses(const ProcessView& view)
{
    return diskList(view, PairEntries::BothFigures);
}

std::string ProcessStatCollector::diskActivityProcesses2(const ProcessView& view)
{
    return diskList(view, PairEntries::FigureAndTime);
}

std::string ProcessStatCollector::networkList(const ProcessView& view, const Dictionary& shares, PairEntries entries)
{
    constexpr ListPair pair{RequestKey::Network, {"download", "upload"}, {R"(,"d":)", R"(,"u":)"},
        {ProcessFigure::download, ProcessFigure::upload}};
    ranking_.sum(table(), view, pair.figures);
    std::string json = appendPair(pair, view, counts_.sharingProcessNetworkCount, entries);
    for (const auto& [name, share] : shares.items()) {
        appendText(json, name);
        json += ':';
        json += serialise(share);
        json += ',';
    }
    return closed(std::move(json), pair.key);
}

std::string ProcessStatCollector::networkProcesses(const ProcessView& view, const Dictionary& shares)
{
    return networkList(view, shares, PairEntries::BothFigures);
}

std::string ProcessStatCollector::networkProcesses2(const ProcessView& view, const Dictionary& shares)
{
    return networkList(view, shares, PairEntries::FigureAndTime);
}

Value ProcessStatCollector::infoForPids(const Value& pids, const std::function<bool(std::int32_t pid)>& mayShow)
{
    Value result = Value::array();
    if (!pids.is_array()) {
        return result;
    }
    int unseen = 0;
    for (const Value& number : pids) {
        const auto pid = pidFrom(number);
        Item* item = pid ? processForPid(*pid) : nullptr;
        if (!pid || (!item && ++unseen > mostUnseen) || !mayShow(*pid)) {
            continue;
        }
        if (item) {
            loadName(*item);
            result.push_back({{"name", item->name()}, {"pid", number}});
        } else if (const auto name = nameOfUnseen(*pid)) {
            result.push_back({{"name", *name}, {"pid", number}});
        }
    }
    return result;
}

} // namespace meridal
