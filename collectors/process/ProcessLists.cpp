// Rankings, and the dictionaries that clients get of them.

#include "base/Text.h"
#include "base/Value.h"
#include "collectors/process/ProcessStatCollector.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <utility>

namespace meridal {

namespace {

std::string typeOf(ProcessList list) { return fmt::to_string(mask(list)); }

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
}

/// Whether it has an entry of its own where not all are shown.
bool ProcessStatCollector::isListed(const Item& item) const
{
    const bool isMember = shared_.sharingUseHeirachy && item.controller() && shows(*item.controller());
    return shows(item) && !isMember;
}

/// Fills ranking_, of which the first `limit` entries are then in order.
void ProcessStatCollector::rank(ProcessFigure figure, std::size_t limit)
{
    ranking_.clear();
    for (Item* item : sharingStorage(shared_.sharingUseHeirachy && !shown_)) {
        if (shown_ && !isListed(*item)) {
            continue;
        }
        const double total = item->sharingTotal(figure);
        const auto place = static_cast<std::uint32_t>(ranking_.size());
        ranking_.push_back({total, total == 0 ? item->lastActive(figure) : 0, place, item});
    }
    const auto isBefore = [](const Ranked& a, const Ranked& b) {
        if (a.total != b.total) {
            return a.total > b.total;
        }
        return a.lastActive != b.lastActive ? a.lastActive > b.lastActive : a.place < b.place;
    };
    if (limit < ranking_.size()) {
        const auto end = ranking_.begin() + static_cast<std::ptrdiff_t>(limit);
        std::partial_sort(ranking_.begin(), end, ranking_.end(), isBefore);
    } else {
        std::sort(ranking_.begin(), ranking_.end(), isBefore);
    }
}

std::vector<ProcessListRow> ProcessStatCollector::rows(ProcessFigure figure, std::int32_t limit)
{
    const auto most = static_cast<std::size_t>(std::max(limit, 0));
    rank(figure, most);
    std::vector<ProcessListRow> result;
    result.reserve(std::min(most, ranking_.size()));
    for (const Ranked& ranked : ranking_) {
        if (result.size() == most) {
            break;
        }
        result.push_back({ranked.item, sharingNameForProcess(*ranked.item)});
    }
    return result;
}

std::vector<ProcessListRow> ProcessStatCollector::ranked(ProcessFigure figure, bool grouped, std::int32_t limit)
{
    setSharingUseHeirachy(grouped);
    updateTotals(figure);
    return rows(figure, limit);
}

Value ProcessStatCollector::list(ProcessFigure figure, std::int32_t limit, FillEntry fill)
{
    std::vector<ProcessListRow> ranking = rows(figure, limit);
    Value::array_t entries;
    entries.reserve(ranking.size());
    for (ProcessListRow& row : ranking) {
        Dictionary& entry = entries.emplace_back(Value::object());
        entry["key"] = row.item->key();
        entry["name"] = std::move(row.name);
        fill(entry, *row.item);
    }
    return Value(std::move(entries));
}

Dictionary ProcessStatCollector::cpuProcesses(bool grouped)
{
    setSharingUseHeirachy(grouped);
    updateTotals(ProcessFigure::Cpu);
    Dictionary result = {{"type", typeOf(ProcessList::Cpu)}};
    result["processes"] = list(ProcessFigure::Cpu, sharingProcessCPUCount_,
        [](Dictionary& entry, const Item& item) { entry["c"] = fixed2(item.sharingTotalCPU()); });
    return result;
}

Dictionary ProcessStatCollector::memoryProcesses(bool grouped)
{
    setSharingUseHeirachy(grouped);
    updateTotals(ProcessFigure::Memory);
    Dictionary result = {{"type", typeOf(ProcessList::Memory)}};
    result["processes"] = list(ProcessFigure::Memory, sharingProcessMemoryCount_,
        [](Dictionary& entry, const Item& item) { entry["m"] = fixed0(item.sharingTotalMemory()); });
    if (rules_.listsFootprint) {
        updateTotals(ProcessFigure::MemoryFootprint);
        result["processes-footprint"] = list(ProcessFigure::MemoryFootprint, sharingProcessMemoryCount_,
            [](Dictionary& entry, const Item& item) { entry["m"] = fixed0(item.sharingTotalMemoryFootprint()); });
    }
    return result;
}

Dictionary ProcessStatCollector::diskActivityProcesses(bool grouped)
{
    setSharingUseHeirachy(grouped);
    updateTotals(ProcessFigure::DiskRead);
    updateTotals(ProcessFigure::DiskWrite);
    const FillEntry fill = [](Dictionary& entry, const Item& item) {
        entry["r"] = item.sharingTotalRead();
        entry["w"] = item.sharingTotalWrite();
    };
    Dictionary result = {{"type", typeOf(ProcessList::Disk)}};
    result["read"] = list(ProcessFigure::DiskRead, sharingProcessDiskActivityCount_, fill);
    result["write"] = list(ProcessFigure::DiskWrite, sharingProcessDiskActivityCount_, fill);
    return result;
}

Dictionary ProcessStatCollector::diskActivityProcesses2(bool grouped)
{
    setSharingUseHeirachy(grouped);
    updateTotals(ProcessFigure::DiskRead);
    updateTotals(ProcessFigure::DiskWrite);
    Dictionary result = {{"type", typeOf(ProcessList::Disk)}};
    result["read"] =
        list(ProcessFigure::DiskRead, sharingProcessDiskActivityCount_, [](Dictionary& entry, const Item& item) {
            entry["r"] = item.sharingTotalRead();
            entry["t"] = item.diskReadTime();
        });
    result["write"] =
        list(ProcessFigure::DiskWrite, sharingProcessDiskActivityCount_, [](Dictionary& entry, const Item& item) {
            entry["w"] = item.sharingTotalWrite();
            entry["t"] = item.diskWriteTime();
        });
    return result;
}

Dictionary ProcessStatCollector::networkProcesses(bool grouped)
{
    setSharingUseHeirachy(grouped);
    updateTotals(ProcessFigure::Download);
    updateTotals(ProcessFigure::Upload);
    const FillEntry fill = [](Dictionary& entry, const Item& item) {
        entry["d"] = item.sharingTotalDownload();
        entry["u"] = item.sharingTotalUpload();
    };
    Dictionary result = {{"type", typeOf(ProcessList::Network)}};
    result["download"] = list(ProcessFigure::Download, sharingProcessNetworkCount_, fill);
    result["upload"] = list(ProcessFigure::Upload, sharingProcessNetworkCount_, fill);
    return result;
}

Dictionary ProcessStatCollector::networkProcesses2(bool grouped)
{
    setSharingUseHeirachy(grouped);
    updateTotals(ProcessFigure::Download);
    updateTotals(ProcessFigure::Upload);
    Dictionary result = {{"type", typeOf(ProcessList::Network)}};
    result["download"] =
        list(ProcessFigure::Download, sharingProcessNetworkCount_, [](Dictionary& entry, const Item& item) {
            entry["d"] = item.sharingTotalDownload();
            entry["u"] = item.sharingTotalUpload();
            entry["t"] = item.networkDownloadTime();
        });
    result["upload"] =
        list(ProcessFigure::Upload, sharingProcessNetworkCount_, [](Dictionary& entry, const Item& item) {
            entry["d"] = item.sharingTotalDownload();
            entry["u"] = item.sharingTotalUpload();
            entry["t"] = item.networkUploadTime();
        });
    return result;
}

std::string ProcessStatCollector::powerProcesses(bool grouped)
{
    setSharingUseHeirachy(grouped);
    updateTotals(ProcessFigure::Power);
    std::string json = R"({"processes":[)";
    const char* separator = "";
    for (const ProcessListRow& row : rows(ProcessFigure::Power, sharingProcessPowerCount_)) {
        json += std::exchange(separator, ",");
        json += R"({"bundle":)";
        appendText(json, row.item->bundleLocation());
        json += R"(,"key":)";
        appendText(json, row.item->key());
        json += R"(,"name":)";
        appendText(json, row.name);
        json += R"(,"score":)";
        appendText(json, fixed2(row.item->sharingTotalPower()));
        json += '}';
    }
    json += R"(],"type":)";
    appendText(json, typeOf(ProcessList::Energy));
    json += '}';
    return json;
}

Value ProcessStatCollector::infoForPids(const Value& pids) const
{
    Value result = Value::array();
    if (!pids.is_array()) {
        return result;
    }
    for (const Value& number : pids) {
        const auto pid = pidFrom(number);
        const Item* item = pid ? processForPid(*pid) : nullptr;
        if (item && shows(*item)) {
            result.push_back({{"name", item->name()}, {"pid", number}});
        }
    }
    return result;
}

} // namespace meridal
