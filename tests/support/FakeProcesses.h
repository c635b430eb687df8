// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/ProcessSource.h"
#include "platform/host/ProcessVisibility.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace meridal::test {

/// A process table that a test writes by hand.
class FakeProcessSource final : public ProcessSource {
public:
    /// A live process of which every group of figures can be read.
    static ProcessRecord process(std::int32_t pid, std::int32_t parent = 1, std::string_view name = "worker")
    {
        const auto identity = static_cast<std::uint64_t>(pid);
        return {pid, parent, ProcessStatus::Alive, ProcessFields::All, identity, name};
    }
    /// What a process does between two passes.
    struct Work {
        double cpu = 0; ///< s, in a time base of ns
        std::uint64_t read = 0;
        std::uint64_t written = 0;
        std::uint64_t wakeups = 0;
    };
    void work(std::int32_t pid, const Work& done)
    {
        ProcessRecord& record = row(pid);
        record.cpuTime += static_cast<std::uint64_t>(done.cpu * 1e9 + 0.5);
        record.diskBytesRead += done.read;
        record.diskBytesWritten += done.written;
        record.idleWakeups += done.wakeups;
    }
    /// Of a process that is there.
    ProcessRecord& row(std::int32_t pid) { return *find(pid); }
    /// Adds a process or changes the one of that pid. The name is copied.
    void set(ProcessRecord record)
    {
        const auto entry = names_.insert_or_assign(record.pid, std::string(record.name)).first;
        record.name = entry->second;
        const auto same = find(record.pid);
        same == rows.end() ? rows.push_back(record) : static_cast<void>(*same = record);
    }
    void remove(std::int32_t pid)
    {
        std::erase_if(rows, [&](const auto& row) { return row.pid == pid; });
    }

    std::span<const ProcessRecord> readProcesses(ProcessFields wanted) override
    {
        asked.push_back(wanted);
        return rows;
    }
    ProcessFields alongWith(ProcessFields wanted) const override
    {
        return wanted | (wanted == ProcessFields::None ? wanted : free);
    }
    std::optional<std::string> commandName(std::int32_t pid) override
    {
        ++looks;
        const auto row = find(pid);
        return row == rows.end() ? std::nullopt : std::optional(std::string(row->name));
    }
    double timeBase() const override { return base; }
    double cpuResolution() const override { return resolution; }
    bool mayBeCut(std::size_t nameBytes) const override { return nameBytes == 16 || nameBytes == 31; }
    std::optional<std::string> executablePath(std::int32_t pid, std::string_view) override
    {
        ++pathLookups;
        const auto entry = paths.find(pid);
        return entry == paths.end() ? std::nullopt : std::optional(entry->second);
    }
    std::optional<std::int32_t> responsiblePid(std::int32_t pid) override
    {
        const auto entry = responsible.find(pid);
        return entry == responsible.end() ? std::nullopt : std::optional(entry->second);
    }
    std::string unitName(const ProcessUnit& unit) override { return unitNames[unit.number]; }
    std::optional<std::string> bundleLocation(std::int32_t pid, const ProcessUnit&) override
    {
        ++bundleLookups;
        const auto entry = bundles.find(pid);
        return entry == bundles.end() ? std::nullopt : std::optional(entry->second);
    }

    std::string unitIdentity(const ProcessUnit& unit) override { return unitIdentities[unit.number]; }
    std::optional<std::string> usualPath(std::string_view name) override
    {
        const auto entry = usualPaths.find(std::string(name));
        return entry == usualPaths.end() ? std::nullopt : std::optional(entry->second);
    }
    double startTime(std::uint64_t identity) const override { return static_cast<double>(identity); }
    bool keepEnded(bool wanted) override { return wanted && tellsEnded; }
    std::span<const EndedRecord> takeEnded() override
    {
        taken_ = std::exchange(ended, {});
        return taken_;
    }

    std::vector<ProcessRecord> rows;
    bool tellsEnded = true;
    std::vector<EndedRecord> ended; ///< since the last pass; names must last
    std::map<std::uint32_t, std::string> unitIdentities;
    std::map<std::string, std::string> usualPaths;
    std::vector<ProcessFields> asked; ///< of each pass, oldest first
    std::map<std::int32_t, std::string> paths;
    std::map<std::int32_t, std::int32_t> responsible;
    std::map<std::uint32_t, std::string> unitNames;
    std::map<std::int32_t, std::string> bundles;
    int bundleLookups = 0;
    double base = 1e9;
    double resolution = 0;
    ProcessFields free = ProcessFields::None; ///< groups that come with any other
    int pathLookups = 0;
    int looks = 0; ///< for the name of one process

private:
    std::vector<ProcessRecord>::iterator find(std::int32_t pid)
    {
        return std::find_if(rows.begin(), rows.end(), [&](const auto& each) { return each.pid == pid; });
    }
    std::map<std::int32_t, std::string> names_;
    std::vector<EndedRecord> taken_;
};

/// Shows the processes to everybody, or to each user their own.
class FakeProcessVisibility final : public ProcessVisibility {
public:
    std::optional<ProcessRestriction> restriction() override
    {
        ++rulesAsked;
        return rule;
    }
    std::optional<std::uint32_t> ownerOf(std::int32_t pid) override
    {
        ++asked;
        const auto entry = owners.find(pid);
        return entry == owners.end() ? std::nullopt : std::optional(entry->second);
    }
    std::optional<ProcessRestriction> rule;
    std::map<std::int32_t, std::uint32_t> owners;
    int asked = 0;
    int rulesAsked = 0;
};

} // namespace meridal::test
