// Rankings, and the lists that clients get of them. Those are written as JSON at once: as dictionaries that are serialised
// afterwards they would be the better part of a refresh.

#include "base/Text.h"
#include "base/Value.h"
#include "collectors/process/ProcessStatCollector.h"
#include "wire/RequestKey.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <utility>

namespace meridal {

namespace {

/// Bytes that most entries do not exceed.
constexpr std::size_t usualEntry = 80;
/// Processes that one question may have looked for beyond the table.
constexpr int mostUnseen = 256;

void appendName(std::string& json, const char* name)
{
    json += '"';
    json += name;
    json += "\":";
}

void appendMember(std::string& json, const char* name, std::string_view text)
{
    json += ',';
    appendName(json, name);
    appendText(json, text);
}

void appendMember(std::string& json, const char* name, double number)
{
    json += ',';
    appendName(json, name);
    appendNumber(json, number);
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

void ProcessStatCollector::updateTotals(ProcessFigure figure)
{
    for (Item* item : endedWith(figure)) {
        item->setSharingTotal(figure, shows(*item) ? item->own(figure) : 0);
    }
    for (Item* item : processes_) {
        item->setSharingTotal(figure, shows(*item) ? item->own(figure) : 0);
    }
    if (!shared_.sharingUseHeirachy) {
        return;
    }
    // Children before parents: each total is complete when it is handed up, so none is added up twice.
    for (auto item = parentsFirst_.rbegin(); item != parentsFirst_.rend(); ++item) {
        Item* controller = (*item)->controller();
        if (controller && controller->sharingUseHierachy() && shows(*controller)) {
            controller->setSharingTotal(figure, controller->sharingTotal(figure) + (*item)->sharingTotal(figure));
        }
    }
    for (const Item* item : endedWith(figure)) { // few, in no order: each hands its own all the way up
        const double own = shows(*item) ? item->own(figure) : 0;
        Item* above = item->controller();
        for (; above && above->sharingUseHierachy() && shows(*above); above = above->controller()) {
            above->setSharingTotal(figure, above->sharingTotal(figure) + own);
        }
    }
}

/// The processes that have ended and have such a figure.
std::span<ProcessStatCollectorItem* const> ProcessStatCollector::endedWith(ProcessFigure figure) const
{
    const bool isTraffic = figure == ProcessFigure::Download || figure == ProcessFigure::Upload;
    return isTraffic ? std::span(ended_) : std::span<Item* const>();
}

/// Whether it has an entry of its own where not all are shown.
bool ProcessStatCollector::isListed(const Item& item) const
{
    const bool isMember = shared_.sharingUseHeirachy && item.controller() && shows(*item.controller());
    return shows(item) && !isMember;
}

/// The first `limit` places, which stand in ranking_ until it is called again.
std::span<const ProcessStatCollector::Ranked> ProcessStatCollector::rank(ProcessFigure figure, std::int32_t limit)
{
    const auto most = static_cast<std::size_t>(std::max(limit, 0));
    ranking_.clear();
    const auto take = [this, figure](Item* item) {
        const double total = item->sharingTotal(figure);
        const auto place = static_cast<std::uint32_t>(ranking_.size());
        ranking_.push_back({total, total == 0 ? item->lastActive(figure) : 0, place, item});
    };
    for (Item* item : sharingStorage(shared_.sharingUseHeirachy && !shown_)) {
        if (!shown_ || isListed(*item)) {
            take(item);
        }
    }
    for (Item* item : endedWith(figure)) {
        if (isListed(*item)) {
            take(item);
        }
    }
    const auto isBefore = [](const Ranked& a, const Ranked& b) {
        if (a.total != b.total) {
            return a.total > b.total;
        }
        return a.lastActive != b.lastActive ? a.lastActive > b.lastActive : a.place < b.place;
    };
    if (most < ranking_.size()) {
        const auto end = ranking_.begin() + static_cast<std::ptrdiff_t>(most);
        std::partial_sort(ranking_.begin(), end, ranking_.end(), isBefore);
    } else {
        std::sort(ranking_.begin(), ranking_.end(), isBefore);
    }
    return std::span(ranking_).first(std::min(most, ranking_.size()));
}

std::vector<ProcessListRow> ProcessStatCollector::ranked(ProcessFigure figure, bool grouped, std::int32_t limit)
{
    setSharingUseHeirachy(grouped);
    updateTotals(figure);
    std::vector<ProcessListRow> result;
    for (const Ranked& each : rank(figure, limit)) {
        result.push_back({each.item, sharingNameForProcess(*each.item)});
    }
    return result;
}

void ProcessStatCollector::appendList(
    std::string& json, const char* name, ProcessFigure figure, std::int32_t limit, AppendFigures appendFigures)
{
    const auto ranking = rank(figure, limit);
    json.reserve(json.size() + ranking.size() * usualEntry); // a list of everybody is not copied as it grows
    appendName(json, name);
    json += '[';
    const char* separator = "";
    for (const Ranked& each : ranking) {
        json += std::exchange(separator, ",");
        json += R"({"key":)";
        appendText(json, each.item->key());
        appendMember(json, "name", sharingNameForProcess(*each.item));
        if (figure == ProcessFigure::Power) {
            loadBundleLocation(*each.item);
        }
        appendFigures(json, *each.item);
        json += '}';
    }
    json += "],";
}

std::string ProcessStatCollector::cpuProcesses(bool grouped)
{
    setSharingUseHeirachy(grouped);
    updateTotals(ProcessFigure::Cpu);
    std::string json = "{";
    appendList(json, "processes", ProcessFigure::Cpu, sharingProcessCPUCount_,
        [](std::string& entry, const Item& item) { appendMember(entry, "c", fixed2(item.sharingTotalCPU())); });
    return closed(std::move(json), RequestKey::Cpu);
}

std::string ProcessStatCollector::memoryProcesses(bool grouped)
{
    setSharingUseHeirachy(grouped);
    updateTotals(ProcessFigure::Memory);
    std::string json = "{";
    appendList(json, "processes", ProcessFigure::Memory, sharingProcessMemoryCount_,
        [](std::string& entry, const Item& item) { appendMember(entry, "m", fixed0(item.sharingTotalMemory())); });
    if (rules_.listsFootprint) {
        updateTotals(ProcessFigure::MemoryFootprint);
        appendList(json, "processes-footprint", ProcessFigure::MemoryFootprint, sharingProcessMemoryCount_,
            [](std::string& entry, const Item& item) {
                appendMember(entry, "m", fixed0(item.sharingTotalMemoryFootprint()));
            });
    }
    return closed(std::move(json), RequestKey::Memory);
}

std::string ProcessStatCollector::diskList(bool grouped, AppendFigures read, AppendFigures written)
{
    setSharingUseHeirachy(grouped);
    updateTotals(ProcessFigure::DiskRead);
    updateTotals(ProcessFigure::DiskWrite);
    std::string json = "{";
    const std::int32_t limit = knowsDiskRates_ ? sharingProcessDiskActivityCount_ : 0; // what nobody knows is not zero
    appendList(json, "read", ProcessFigure::DiskRead, limit, read);
    appendList(json, "write", ProcessFigure::DiskWrite, limit, written);
    return closed(std::move(json), RequestKey::Disk);
}

std::string ProcessStatCollector::diskActivityProcesses(bool grouped)
{
    const AppendFigures both = [](std::string& entry, const Item& item) {
        appendMember(entry, "r", item.sharingTotalRead());
        appendMember(entry, "w", item.sharingTotalWrite());
    };
    return diskList(grouped, both, both);
}

std::string ProcessStatCollector::diskActivityProcesses2(bool grouped)
{
    return diskList(
        grouped,
        [](std::string& entry, const Item& item) {
            appendMember(entry, "r", item.sharingTotalRead());
            appendMember(entry, "t", item.diskReadTime());
        },
        [](std::string& entry, const Item& item) {
            appendMember(entry, "w", item.sharingTotalWrite());
            appendMember(entry, "t", item.diskWriteTime());
        });
}

std::string ProcessStatCollector::networkList(
    bool grouped, const Dictionary& shares, AppendFigures received, AppendFigures sent)
{
    setSharingUseHeirachy(grouped);
    updateTotals(ProcessFigure::Download);
    updateTotals(ProcessFigure::Upload);
    std::string json = "{";
    appendList(json, "download", ProcessFigure::Download, sharingProcessNetworkCount_, received);
    appendList(json, "upload", ProcessFigure::Upload, sharingProcessNetworkCount_, sent);
    for (const auto& [name, share] : shares.items()) {
        appendText(json, name);
        json += ':';
        json += serialise(share);
        json += ',';
    }
    return closed(std::move(json), RequestKey::Network);
}

std::string ProcessStatCollector::networkProcesses(bool grouped, const Dictionary& shares)
{
    const AppendFigures both = [](std::string& entry, const Item& item) {
        appendMember(entry, "d", item.sharingTotalDownload());
        appendMember(entry, "u", item.sharingTotalUpload());
    };
    return networkList(grouped, shares, both, both);
}

std::string ProcessStatCollector::networkProcesses2(bool grouped, const Dictionary& shares)
{
    return networkList(
        grouped, shares,
        [](std::string& entry, const Item& item) {
            appendMember(entry, "d", item.sharingTotalDownload());
            appendMember(entry, "u", item.sharingTotalUpload());
            appendMember(entry, "t", item.networkDownloadTime());
        },
        [](std::string& entry, const Item& item) {
            appendMember(entry, "d", item.sharingTotalDownload());
            appendMember(entry, "u", item.sharingTotalUpload());
            appendMember(entry, "t", item.networkUploadTime());
        });
}

std::string ProcessStatCollector::powerProcesses(bool grouped)
{
    setSharingUseHeirachy(grouped);
    updateTotals(ProcessFigure::Power);
    std::string json = "{";
    const std::int32_t limit = knowsScores_ ? sharingProcessPowerCount_ : 0; // as above
    appendList(json, "processes", ProcessFigure::Power, limit, [](std::string& entry, const Item& item) {
        appendMember(entry, "score", fixed2(item.sharingTotalPower()));
        appendMember(entry, "bundle", item.bundleLocation());
    });
    return closed(std::move(json), RequestKey::Energy);
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
