// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/TrafficCounters.h"

#include <filesystem>
#include <string>
#include <vector>

namespace meridal {

class Runtime;

struct BpfTrafficOptions {
    std::filesystem::path root = "/"; ///< what holds proc
    /// Objects of platform/linux/bpf to try, best first.
    std::vector<std::string> objects = {"traffic", "traffic_functions", "traffic_old", "traffic_calls"};
};

/// Traffic by process from BPF programs: on the root of the control groups, which see each packet of each socket, or, where
/// none may be attached there, at the calls that send and receive. Loaded at the start and gone at the end.
class BpfTrafficCounters final : public TrafficCounters {
public:
    /// The runtime must outlive it.
    BpfTrafficCounters(Runtime& runtime, BpfTrafficOptions options = {});

    Result<std::unique_ptr<Counting>> start() override;

private:
    Runtime& runtime_;
    BpfTrafficOptions options_;
};

} // namespace meridal
