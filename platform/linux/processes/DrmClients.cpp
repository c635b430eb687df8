// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/processes/DrmClients.h"

#include "platform/linux/kernel/ProcParsers.h"

#include <algorithm>
#include <utility>

namespace meridal {

namespace {

constexpr double deviceInterval = 60;   // s: cards are plugged rarely
constexpr double longestUnread = 86400; // s that a door's cycles are remembered: whoever could not be read goes on
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
    } else if (const auto engines = drmKeyAfter(key, "drm-engine-capacity-")) {
        usage.cycles[std::string(*engines)].engines = leadingNumber(value).value_or(1);
    } else if (key.starts_with("drm-engine-")) {
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
    while (const auto taken = proc::takeLine(text)) {
        const std::string_view line = *taken;
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
    for (auto& [pid, numbers] : known_) {
        std::erase_if(
            numbers, [&, of = pid](const std::string& number) { return !readDoor(of, number, monotonicTime); });
    }
    std::erase_if(known_, [](const auto& process) { return process.second.empty(); });
    std::erase_if(counted_, [&](const auto& door) { return monotonicTime - door.second.readAt >= longestUnread; });
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
    known_.erase(pid);
    for (const std::string& number : root_.list("proc/" + std::to_string(pid) + "/fd")) {
        const auto target = proc_.readLink(pid, "fd/" + number);
        if (target && target->starts_with("/dev/dri/")) {
            known_[pid].insert(number);
        }
    }
}

bool DrmClients::readDoor(std::int32_t pid, const std::string& number, double monotonicTime)
{
    std::string_view text;
    if (proc_.read(pid, "fdinfo/" + number, text) != ProcOutcome::Read) {
        return false;
    }
    auto usage = parseDrmUsage(text);
    if (!usage) {
        return false;
    }
    GraphicsClient client;
    client.pid = pid;
    client.device = usage->door ? numberOf(usage->device) : namelessDevice;
    // A door without a number is taken for this process's alone.
    client.client = usage->door.value_or((static_cast<std::uint64_t>(pid) << 32U) | leadingNumber(number).value_or(0));
    client.busyNs = usage->busyNs;
    client.memoryBytes = usage->memoryBytes;
    if (!usage->cycles.empty()) {
        Counted& counted = counted_[{client.device, client.client}];
        addCycles(counted, *usage, monotonicTime);
        client.busyNs += counted.ns;
    }
    clients_.push_back(client);
    return true;
}

void DrmClients::addCycles(Counted& counted, DrmUsage& usage, double monotonicTime)
{
    const double passed = monotonicTime - std::exchange(counted.readAt, monotonicTime);
    for (const auto& [engine, now] : usage.cycles) {
        const auto before = counted.cycles.find(engine);
        if (before == counted.cycles.end() || now.all <= before->second.all || now.busy <= before->second.busy) {
            continue;
        }
        const double part =
            static_cast<double>(now.busy - before->second.busy) / static_cast<double>(now.all - before->second.all);
        counted.ns +=
            static_cast<std::uint64_t>(std::min(part, static_cast<double>(now.engines)) * passed * nsPerSecond);
    }
    counted.cycles = std::move(usage.cycles);
}

std::uint32_t DrmClients::numberOf(const std::string& device)
{
    return devices_.try_emplace(device, static_cast<std::uint32_t>(devices_.size() + 1)).first->second;
}

} // namespace meridal
