// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Result.h"
#include "platform/host/Limitations.h"
#include "platform/linux/processes/BpfProcessReader.h"
#include "platform/linux/processes/ProcProcessSource.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace meridal {

/// Ways to a reader, best first.
using BpfProcessLoaders = std::vector<std::function<Result<std::unique_ptr<BpfProcessReader>>()>>;
BpfProcessLoaders bpfProcessLoaders();

/// The process table's source for this machine: the first of the BPF readers that loads and agrees with /proc about this
/// process and two others, else /proc itself, and then the limitation "process-source" says why.
std::unique_ptr<ProcessSource> chooseProcessSource(const std::filesystem::path& root,
    std::shared_ptr<Limitations> limitations, ProcProcessOptions options,
    const BpfProcessLoaders& loaders = bpfProcessLoaders());

/// /proc, and what else the kernel answers about the processes of this machine.
std::unique_ptr<ProcessSource> makeProcProcessSource(
    const std::filesystem::path& root, std::shared_ptr<Limitations> limitations, ProcProcessOptions options);

} // namespace meridal
