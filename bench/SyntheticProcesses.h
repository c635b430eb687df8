// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/ProcessSource.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace meridal {

/// An invented process table of which a part works in every pass, as on a machine in use: the same work each time, whatever
/// the machine, and more processes than any has.
class SyntheticProcesses final : public ProcessSource {
public:
    SyntheticProcesses(std::size_t count, std::size_t everyBusy) : everyBusy_(everyBusy)
    {
        for (std::size_t index = 0; index < count; ++index) {
            names_.push_back("process-" + std::to_string(index));
        }
        for (std::size_t index = 0; index < count; ++index) {
            ProcessRecord& row = rows_.emplace_back();
            row.pid = static_cast<std::int32_t>(index + 1);
            row.parentPid = static_cast<std::int32_t>(index < 20 ? index : 1 + index % 20);
            row.present = ProcessFields::All;
            row.startIdentity = index;
            row.name = names_[index];
            row.user = static_cast<std::uint32_t>(index % 7);
            row.threads = 1;
            row.physFootprint = row.residentSize = index * 7919 % count * 4096; // in no order
        }
    }

    std::span<const ProcessRecord> readProcesses(ProcessFields) override
    {
        ++pass_;
        for (std::size_t index = 0; index < rows_.size(); index += everyBusy_) {
            rows_[index].cpuTime += 1'000'000 * (1 + (index * 31 + pass_ * 17) % 101);
            rows_[index].idleWakeups += pass_ % 7;
            rows_[index].diskBytesRead += 4096 * (pass_ % 3);
        }
        return rows_;
    }
    double timeBase() const override { return 1e9; }
    double cpuResolution() const override { return 0; }
    bool mayBeCut(std::size_t nameBytes) const override { return nameBytes == 16; }
    std::optional<std::string> commandName(std::int32_t) override { return std::nullopt; }
    std::optional<std::string> executablePath(std::int32_t, std::string_view) override { return std::nullopt; }
    std::optional<std::string> bundleLocation(std::int32_t, const ProcessUnit&) override { return std::nullopt; }

private:
    std::size_t everyBusy_;
    std::size_t pass_ = 0;
    std::vector<std::string> names_;
    std::vector<ProcessRecord> rows_;
};

} // namespace meridal
