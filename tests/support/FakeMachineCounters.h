// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/FileSystems.h"
#include "platform/host/GraphicsUnits.h"
#include "platform/host/MachineCounters.h"

#include <optional>
#include <utility>
#include <vector>

namespace meridal::test {

/// A machine that counts as a test tells it. By itself one that tells nothing.
class FakeMachineCounters final : public MachineCounters {
public:
    const ProcessorReading* processors() override
    {
        ++reads;
        return processor ? &*processor : nullptr;
    }
    std::optional<std::uint64_t> frequencyHz(int) override { return std::nullopt; }
    const MemoryReading* memory() override { return ram ? &*ram : nullptr; }
    void memoryKills(Kills reply) override
    {
        ++killQuestions;
        reply(std::exchange(kills, {}));
    }
    const PressureReading* pressure() override { return stalls ? &*stalls : nullptr; }
    const std::vector<BlockDeviceRecord>* blockDevices() override { return disks ? &*disks : nullptr; }

    int reads = 0; ///< of processors
    std::optional<ProcessorReading> processor;
    std::optional<MemoryReading> ram;
    std::vector<MemoryKill> kills;
    int killQuestions = 0;
    std::optional<PressureReading> stalls;
    std::optional<std::vector<BlockDeviceRecord>> disks;
};

class FakeGraphicsUnits final : public GraphicsUnits {
public:
    const std::vector<GraphicsRecord>& read(double) override { return units; }
    std::vector<GraphicsRecord> units;
};

class FakeFileSystems final : public FileSystems {
public:
    std::vector<FileSystemRecord> read() override { return mounted; }
    std::vector<FileSystemRecord> mounted;
};

} // namespace meridal::test
