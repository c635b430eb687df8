#include "collectors/machine/MachineStatCollectors.h"

#include "base/Runtime.h"
#include "history/SampleStorages.h"
#include "platform/Context.h"
#include "platform/host/Host.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

namespace meridal {

namespace {

using Figure = std::optional<double>;

Figure figureOf(const std::optional<std::uint64_t>& count)
{
    return count ? Figure(static_cast<double>(*count)) : std::nullopt;
}

double rounded(double figure)
{
    constexpr double digits = 1e4; // what a quotient has beyond them is noise
    return std::round(figure * digits) / digits;
}

/// {"user": 12.5, ...} of columns and their figures; those that are absent are left out.
Value namedFigures(std::span<const char* const> names, std::span<const Figure> figures)
{
    Value named = Value::object();
    for (std::size_t at = 0; at < names.size(); ++at) {
        if (figures[at]) {
            named[names[at]] = rounded(*figures[at]);
        }
    }
    return named;
}

std::vector<std::string> columnsOf(std::initializer_list<std::span<const char* const>> parts)
{
    std::vector<std::string> columns;
    for (const auto& part : parts) {
        columns.insert(columns.end(), part.begin(), part.end());
    }
    return columns;
}

constexpr std::array shareColumns = {"user", "nice", "system", "idle", "iowait", "interrupt", "steal"};
constexpr std::array loadColumns = {"load1", "load5", "load15"};
constexpr std::array taskColumns = {"runnable", "blocked"};
constexpr std::array rateColumns = {"switches", "interrupts", "forks"};
constexpr std::array memoryColumns = {
    "used", "available", "free", "buffers", "cached", "shared", "slab", "dirty", "writeback", "compressed", "wired"};
constexpr std::array swapColumns = {"swapused"};
constexpr std::array pagingColumns = {"swapin", "swapout"};
constexpr std::array pressureColumns = {"cpusome", "memorysome", "memoryfull", "iosome", "iofull"};
constexpr std::array byteColumns = {"readbytes", "writtenbytes"};
constexpr std::array requestColumns = {"reads", "writes"};
constexpr std::array latencyColumns = {"readtime", "writetime"};
constexpr std::array busyColumns = {"busy"};
constexpr std::array queueColumns = {"queue"};

std::array<Figure, shareColumns.size()> figuresOf(const std::optional<ProcessorShares>& shares)
{
    if (!shares) {
        return {};
    }
    return {shares->user, shares->nice, shares->system, shares->idle, shares->ioWait, shares->interrupt, shares->steal};
}

std::optional<std::uint64_t> slabOf(const MemoryReading& memory)
{
    const auto& parts = memory.slabUnreclaimable;
    return memory.slabReclaimable && parts ? std::optional(*memory.slabReclaimable + *parts) : std::nullopt;
}

std::array<Figure, memoryColumns.size()> figuresOf(const MemoryReading& memory)
{
    const auto used = memory.total - std::min(memory.total, memory.available);
    return {figureOf(used), figureOf(memory.available), figureOf(memory.free), figureOf(memory.buffers),
        figureOf(memory.cached), figureOf(memory.shared), figureOf(slabOf(memory)), figureOf(memory.dirty),
        figureOf(memory.writeback), figureOf(memory.compressed), figureOf(memory.wired)};
}

std::array<Figure, 8> figuresOf(const BlockDeviceRates& rates)
{
    return {rates.readBytes, rates.writtenBytes, rates.reads, rates.writes, rates.readMs, rates.writeMs, rates.busy,
        rates.queue};
}

} // namespace

// What all have in common

MachineStatCollector::MachineStatCollector(
    Context& context, const std::string& name, std::vector<std::string> columns, StorageType type)
    : StatCollector(context, name + " collector")
    , history_(context,
          {.description = description(),
              .columns = std::move(columns),
              .storageType = type,
              .dbTablePrefix = name,
              .dbpath = context.paths.support / "machine-history.db",
              .dbpathLong = context.paths.support / "machine-history-long.db"})
{
}

void MachineStatCollector::updateStats() { read(context().runtime.monotonicTime()); }

void MachineStatCollector::note(std::span<const Figure> figures)
{
    history_.own().addSample(context().runtime.wallTime(), figures);
}

void MachineStatCollector::offer(HistoryCatalogue& catalogue, const std::string& series, const std::string& name,
    const std::string& unit, std::vector<std::string> columns)
{
    catalogue.add(
        series, history_, [one = HistorySeries{.key = "", .name = name, .unit = unit, .values = std::move(columns)}] {
            return std::vector{one};
        });
}

// Processors

ProcessorStatCollector::ProcessorStatCollector(Context& context)
    : MachineStatCollector(
        context, "processor", columnsOf({shareColumns, loadColumns, taskColumns, rateColumns}), StorageType::Collector)
{
}

void ProcessorStatCollector::read(double monotonicTime)
{
    const ProcessorReading* reading = context().host.machineCounters->processors();
    if (!reading) {
        latest_.reset();
        return;
    }
    const auto before = std::exchange(latest_, Timed<ProcessorReading>{*reading, monotonicTime});
    each_.clear();
    shares_ = before ? processorShares(before->reading.all, reading->all) : std::nullopt;
    rates_ = before ? processorRates(*before, *latest_) : ProcessorRates();
    for (const ProcessorRecord& processor : reading->each) {
        for (const ProcessorRecord& earlier : before ? before->reading.each : std::vector<ProcessorRecord>()) {
            const auto shares =
                earlier.number == processor.number ? processorShares(earlier.times, processor.times) : std::nullopt;
            if (shares) {
                each_[processor.number] = *shares;
            }
        }
    }
    const auto shares = figuresOf(shares_);
    const std::array<Figure, loadColumns.size() + taskColumns.size() + rateColumns.size()> others = {
        reading->load1Minute, reading->load5Minutes, reading->load15Minutes, figureOf(reading->runnableTasks),
        figureOf(reading->blockedTasks), rates_.contextSwitches, rates_.interrupts, rates_.forks};
    std::array<Figure, shares.size() + others.size()> figures;
    std::copy(others.begin(), others.end(), std::copy(shares.begin(), shares.end(), figures.begin()));
    note(figures);
}

Value ProcessorStatCollector::state() const
{
    if (!latest_) {
        return nullptr;
    }
    const ProcessorReading& reading = latest_->reading;
    Value state = namedFigures(shareColumns, figuresOf(shares_));
    if (shares_) {
        state["busy"] = rounded(shares_->busy());
    }
    const std::array<Figure, 3> loads = {reading.load1Minute, reading.load5Minutes, reading.load15Minutes};
    const std::array<Figure, 2> tasks = {figureOf(reading.runnableTasks), figureOf(reading.blockedTasks)};
    const std::array<Figure, 3> rates = {rates_.contextSwitches, rates_.interrupts, rates_.forks};
    state.update(namedFigures(loadColumns, loads));
    state.update(namedFigures(taskColumns, tasks));
    state.update(namedFigures(rateColumns, rates));
    Value each = Value::array();
    for (const ProcessorRecord& processor : reading.each) {
        Value one = {{"number", processor.number}};
        if (const auto shares = each_.find(processor.number); shares != each_.end()) {
            one["busy"] = rounded(shares->second.busy());
        }
        if (processor.frequencyHz) {
            one["frequency"] = *processor.frequencyHz;
        }
        each.push_back(std::move(one));
    }
    state["processors"] = std::move(each);
    return state;
}

void ProcessorStatCollector::addTo(HistoryCatalogue& catalogue)
{
    offer(catalogue, "processors", "CPU use", "%", columnsOf({shareColumns}));
    offer(catalogue, "load", "Load", "", columnsOf({loadColumns}));
    offer(catalogue, "tasks", "Tasks", "", columnsOf({taskColumns}));
    offer(catalogue, "kernel", "Kernel events", "1/s", columnsOf({rateColumns}));
}

// Memory

MemoryStatCollector::MemoryStatCollector(Context& context)
    : MachineStatCollector(
        context, "memory", columnsOf({memoryColumns, swapColumns, pagingColumns}), StorageType::Collector)
{
}

void MemoryStatCollector::read(double monotonicTime)
{
    const MemoryReading* reading = context().host.machineCounters->memory();
    if (!reading) {
        latest_.reset();
        return;
    }
    const auto before = std::exchange(latest_, Timed<MemoryReading>{*reading, monotonicTime});
    rates_ = before ? swapRates(*before, *latest_) : SwapRates();
    const auto memory = figuresOf(*reading);
    const std::array<Figure, 3> others = {figureOf(reading->swapUsed), rates_.inBytes, rates_.outBytes};
    std::array<Figure, memory.size() + others.size()> figures;
    std::copy(others.begin(), others.end(), std::copy(memory.begin(), memory.end(), figures.begin()));
    note(figures);
}

Value MemoryStatCollector::state() const
{
    if (!latest_) {
        return nullptr;
    }
    const MemoryReading& reading = latest_->reading;
    Value state = namedFigures(memoryColumns, figuresOf(reading));
    state["total"] = reading.total;
    state["swaptotal"] = reading.swapTotal;
    state["swapused"] = reading.swapUsed;
    const std::array<Figure, 2> paging = {rates_.inBytes, rates_.outBytes};
    state.update(namedFigures(pagingColumns, paging));
    if (reading.hugePages) {
        state["hugepages"] = *reading.hugePages;
    }
    if (reading.outOfMemoryKills) {
        state["oomkills"] = *reading.outOfMemoryKills;
    }
    return state;
}

void MemoryStatCollector::addTo(HistoryCatalogue& catalogue)
{
    offer(catalogue, "memory", "Memory", "B", columnsOf({memoryColumns}));
    offer(catalogue, "swap", "Swap", "B", columnsOf({swapColumns}));
    offer(catalogue, "paging", "Paging", "B/s", columnsOf({pagingColumns}));
}

// Pressure

PressureStatCollector::PressureStatCollector(Context& context)
    : MachineStatCollector(context, "pressure", columnsOf({pressureColumns}), StorageType::Collector)
{
}

void PressureStatCollector::read(double monotonicTime)
{
    const PressureReading* reading = context().host.machineCounters->pressure();
    if (!reading) {
        latest_.reset();
        return;
    }
    const auto before = std::exchange(latest_, Timed<PressureReading>{*reading, monotonicTime});
    if (!before) {
        return;
    }
    const double seconds = monotonicTime - before->time;
    processor_ = stallShares(before->reading.processor, reading->processor, seconds);
    memory_ = stallShares(before->reading.memory, reading->memory, seconds);
    storage_ = stallShares(before->reading.storage, reading->storage, seconds);
    note(std::array<Figure, pressureColumns.size()>{
        processor_.some, memory_.some, memory_.full, storage_.some, storage_.full});
}

Value PressureStatCollector::state() const
{
    if (!latest_) {
        return nullptr;
    }
    const std::array<Figure, pressureColumns.size()> figures = {
        processor_.some, memory_.some, memory_.full, storage_.some, storage_.full};
    return namedFigures(pressureColumns, figures);
}

void PressureStatCollector::addTo(HistoryCatalogue& catalogue)
{
    offer(catalogue, "pressure", "Pressure", "%", columnsOf({pressureColumns}));
}

// Block devices

BlockDeviceStatCollector::BlockDeviceStatCollector(Context& context)
    : MachineStatCollector(context, "blockdevice",
        columnsOf({byteColumns, requestColumns, latencyColumns, busyColumns, queueColumns}), StorageType::Items)
{
}

void BlockDeviceStatCollector::read(double monotonicTime)
{
    const auto* records = context().host.machineCounters->blockDevices();
    if (!records) {
        devices_.clear();
        return;
    }
    std::map<std::string, Device> before = std::exchange(devices_, {});
    for (const BlockDeviceRecord& record : *records) {
        if (record.kind != BlockDeviceKind::Disk) {
            continue;
        }
        Device& device = devices_[record.name];
        if (const auto known = before.find(record.name); known != before.end()) {
            const auto& earlier = known->second.latest;
            device.rates = blockDeviceRates(earlier.reading, record, monotonicTime - earlier.time);
            device.samples = std::move(known->second.samples);
        } else {
            device.samples = history().item(record.name);
        }
        device.latest = {record, monotonicTime};
        device.samples->addSample(context().runtime.wallTime(), figuresOf(device.rates));
    }
}

Value BlockDeviceStatCollector::state() const
{
    Value state = Value::array();
    for (const auto& [name, device] : devices_) {
        Value one = {{"name", name}};
        const auto figures = figuresOf(device.rates);
        static constexpr std::array columns = {
            "readbytes", "writtenbytes", "reads", "writes", "readtime", "writetime", "busy", "queue"};
        one.update(namedFigures(columns, figures));
        state.push_back(std::move(one));
    }
    return state;
}

std::vector<HistorySeries> BlockDeviceStatCollector::seriesOf(
    const std::string& unit, const std::vector<std::string>& columns) const
{
    std::vector<HistorySeries> series;
    for (const auto& [name, device] : devices_) {
        series.push_back({.key = name, .name = name, .unit = unit, .values = columns});
    }
    return series;
}

void BlockDeviceStatCollector::addTo(HistoryCatalogue& catalogue)
{
    const auto add = [&](const char* name, const char* unit, std::span<const char* const> columns) {
        catalogue.add(name, history(), [this, unit, columns] { return seriesOf(unit, columnsOf({columns})); });
    };
    add("throughput", "B/s", byteColumns);
    add("requests", "1/s", requestColumns);
    add("latency", "ms", latencyColumns);
    add("busy", "%", busyColumns);
    add("queue", "", queueColumns);
}

} // namespace meridal
