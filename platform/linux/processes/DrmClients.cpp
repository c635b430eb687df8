// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/processes/DrmClients.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace meridal {

namespace {

constexpr double deviceInterval = 60; // s: cards are plugged rarely
constexpr double nsPerSecond = 1e9;
constexpr std::uint32_t namelessDevice = 0;

/// "12 MiB" and "12 KiB" as bytes, "12" as it stands.
std::uint64_t drmAmount(std::string_view value)
{
    const std::uint64_t unit = value.ends_with("KiB") ? 1U << 10U : value.ends_with("MiB") ? 1U << 20U : 1U;
    return leadingNumber(value).value_or(0) * unit;
}

/// What is left of a key behind a prefix.
std::optional<std::string_view> drmKeyAfter(std::string_view key, std::string_view prefix)
{
    return key.starts_with(prefix) ? std::optional(key.substr(prefix.size())) : std::nullopt;
}

void takeDrmFigure(DrmUsage& usage, std::string_view key, std::string_view value)
{
    if (key == "drm-pdev") {
        usage.device = value;
    } else if (key == "drm-client-id") {
        usage.door = leadingNumber(value);
    } else if (key.starts_with("drm-engine-") && !key.starts_with("drm-engine-capacity-")) {
        usage.busyNs += leadingNumber(value).value_or(0);
    } else if (const auto engine = drmKeyAfter(key, "drm-cycles-")) {
        usage.cycles[std::string(*engine)].busy = leadingNumber(value).value_or(0);
    } else if (const auto whole = drmKeyAfter(key, "drm-total-cycles-")) {
        usage.cycles[std::string(*whole)].all = leadingNumber(value).value_or(0);
    }
}

} // namespace

std::optional<DrmUsage> parseDrmUsage(std::string_view text)
{
    DrmUsage usage;
    bool isDrm = false;
    std::optional<std::uint64_t>
        held; // "memory": the older word, and with some drivers for something else beside the newer
    std::optional<std::uint64_t> resident;
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(text.size(), line.size() + 1));
        const std::size_t colon = line.find(':');
        if (!line.starts_with("drm-") || colon == std::string_view::npos) {
            continue;
        }
        const std::string_view key = line.substr(0, colon);
        std::string_view value = line.substr(colon + 1);
        value.remove_prefix(std::min(value.size(), value.find_first_not_of(" \t")));
        isDrm = isDrm || key == "drm-driver";
        if (key.starts_with("drm-memory-")) {
            held = held.value_or(0) + drmAmount(value);
        } else if (key.starts_with("drm-resident-")) {
            resident = resident.value_or(0) + drmAmount(value);
        } else {
            takeDrmFigure(usage, key, value);
        }
    }
    usage.memoryBytes = resident ? resident : held;
    return isDrm ? std::optional(std::move(usage)) : std::nullopt;
}

std::span<const GraphicsClient> DrmClients::read(std::span<const std::int32_t> candidates, double monotonicTime)
{
    clients_.clear();
    if (!hasDevices(monotonicTime)) {
        known_.clear();
        return {};
    }
    for (const std::int32_t pid : candidates) {
        lookThrough(pid);
    }
    for (auto& [pid, doors] : known_) {
        for (auto door = doors.begin(); door != doors.end();) {
            door = readDoor(pid, door->first, door->second, monotonicTime) ? std::next(door) : doors.erase(door);
        }
    }
    std::erase_if(known_, [](const auto& process) { return process.second.empty(); });
    return clients_;
}

bool DrmClients::hasDevices(double monotonicTime)
{
    if (!lookedAt_ || monotonicTime - *lookedAt_ >= deviceInterval) {
        lookedAt_ = monotonicTime;
        const auto names = root_.list("sys/class/drm");
        hasDevices_ = std::any_of(names.begin(), names.end(),
            [](const std::string& name) { return name.starts_with("card") || name.starts_with("render"); });
    }
    return hasDevices_;
}

void DrmClients::lookThrough(std::int32_t pid)
{
    Doors before;
    if (const auto found = known_.find(pid); found != known_.end()) {
        before = std::move(found->second);
        known_.erase(found);
    }
    for (const std::string& number : root_.list("proc/" + std::to_string(pid) + "/fd")) {
        const auto target = proc_.readLink(pid, "fd/" + number);
        if (target && target->starts_with("/dev/dri/")) {
            known_[pid][number] = std::move(before[number]);
        }
    }
}

bool DrmClients::readDoor(std::int32_t pid, const std::string& number, Door& door, double monotonicTime)
{
    std::string_view text;
    if (proc_.read(pid, "fdinfo/" + number, text) != ProcOutcome::Read) {
        return false;
    }
    auto usage = parseDrmUsage(text);
    if (!usage) {
        return false;
    }
    addCycles(door, *usage, monotonicTime);
    GraphicsClient client;
    client.pid = pid;
    client.device = usage->door ? numberOf(usage->device) : namelessDevice;
    // A door without a number is taken for this process's alone.
    client.client = usage->door.value_or((static_cast<std::uint64_t>(pid) << 32U) | leadingNumber(number).value_or(0));
    client.busyNs = usage->busyNs + door.cyclesNs;
    client.memoryBytes = usage->memoryBytes;
    clients_.push_back(client);
    return true;
}

void DrmClients::addCycles(Door& door, DrmUsage& usage, double monotonicTime)
{
    const double passed = monotonicTime - std::exchange(door.readAt, monotonicTime);
    for (const auto& [engine, now] : usage.cycles) {
        const auto before = door.cycles.find(engine);
        if (before == door.cycles.end() || now.all <= before->second.all || now.busy <= before->second.busy) {
            continue;
        }
        const double part =
            static_cast<double>(now.busy - before->second.busy) / static_cast<double>(now.all - before->second.all);
        door.cyclesNs += static_cast<std::uint64_t>(std::min(part, 1.0) * passed * nsPerSecond);
    }
    door.cycles = std::move(usage.cycles);
}

std::uint32_t DrmClients::numberOf(const std::string& device)
{
    return devices_.try_emplace(device, static_cast<std::uint32_t>(devices_.size() + 1)).first->second;
}

} // namespace meridal
