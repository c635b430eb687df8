#pragma once

#include "collectors/StatCollector.h"
#include "collectors/machine/MachineFigures.h"
#include "history/HistoryCatalogue.h"
#include "history/HistoryRecorder.h"

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace meridal {

class SampleStorages;

/// What the machine itself does, read and recorded. Each reading is compared with the one before; the first gives what needs
/// no comparison. Main queue only.
class MachineStatCollector : public StatCollector {
public:
    /// Reads, and notes the figures for history.
    void updateStats() override;
    void updateHistory() override { history_.updateHistory(); }
    HistoryRecorder& history() { return history_; }
    /// The latest figures, as the second interface tells them; null before they can be had.
    virtual Value state() const = 0;
    virtual void addTo(HistoryCatalogue& catalogue) = 0;

protected:
    /// `name` begins the names of its tables, `columns` are those of its samples.
    MachineStatCollector(Context& context, const std::string& name, std::vector<std::string> columns, StorageType type);
    virtual void read(double monotonicTime) = 0;
    void note(std::span<const std::optional<double>> figures);
    void offer(HistoryCatalogue& catalogue, const std::string& series, const std::string& name, const std::string& unit,
        std::vector<std::string> columns);

private:
    HistoryRecorder history_;
};

/// Processors: where their time goes, load, tasks, and what the kernel does a second.
class ProcessorStatCollector final : public MachineStatCollector {
public:
    explicit ProcessorStatCollector(Context& context);
    Value state() const override;
    void addTo(HistoryCatalogue& catalogue) override;

private:
    void read(double monotonicTime) override;

    std::optional<Timed<ProcessorReading>> latest_;
    std::optional<ProcessorShares> shares_;
    std::map<int, ProcessorShares> each_; ///< by processor
    ProcessorRates rates_;
};

/// Memory and swap, and who was killed for want of it.
class MemoryStatCollector final : public MachineStatCollector {
public:
    explicit MemoryStatCollector(Context& context);
    Value state() const override;
    void addTo(HistoryCatalogue& catalogue) override;

private:
    void read(double monotonicTime) override;

    std::optional<Timed<MemoryReading>> latest_;
    SwapRates rates_;
};

/// For how long work stood still for want of processors, memory or storage. Nothing where the system does not account for it.
class PressureStatCollector final : public MachineStatCollector {
public:
    explicit PressureStatCollector(Context& context);
    Value state() const override;
    void addTo(HistoryCatalogue& catalogue) override;

private:
    void read(double monotonicTime) override;

    std::optional<Timed<PressureReading>> latest_;
    StallShares processor_;
    StallShares memory_;
    StallShares storage_;
};

/// Disks as the kernel sees them: what is read and written, how long that takes, how busy they are. Whole disks, and not
/// what is made of them or lies in memory.
class BlockDeviceStatCollector final : public MachineStatCollector {
public:
    explicit BlockDeviceStatCollector(Context& context);
    Value state() const override;
    void addTo(HistoryCatalogue& catalogue) override;

private:
    struct Device {
        Timed<BlockDeviceRecord> latest;
        BlockDeviceRates rates;
        std::shared_ptr<SampleStorages> samples; ///< recorded as long as it is there
    };

    void read(double monotonicTime) override;
    std::vector<HistorySeries> seriesOf(const std::string& unit, const std::vector<std::string>& columns) const;

    std::map<std::string, Device> devices_; ///< by name
};

} // namespace meridal
