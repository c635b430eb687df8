// SPDX-License-Identifier: Apache-2.0
#include "collectors/machine/ProcessorStatCollector.h"

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace meridal {

namespace {

const std::vector<std::string> shareColumns = {"user", "nice", "system", "idle", "iowait", "interrupt", "steal"};
const std::vector<std::string> loadColumns = {"load1", "load5", "load15"};
const std::vector<std::string> taskColumns = {"runnable", "blocked"};
const std::vector<std::string> rateColumns = {"switches", "interrupts", "forks"};

} // namespace

ProcessorStatCollector::ProcessorStatCollector(Context& context)
    : MachineStatCollector(
        context, "processor", {shareColumns, loadColumns, taskColumns, rateColumns}, StorageType::Collector)
{
}

void ProcessorStatCollector::read(double monotonicTime)
{
    const ProcessorReading* reading = counters().processors();
    if (!reading) {
        reading_.reset();
        return note({});
    }
    const auto before = std::exchange(reading_, Timed<ProcessorReading>{*reading, monotonicTime});
    const auto shares = before ? processorShares(before->reading.all, reading->all) : std::nullopt;
    const ProcessorRates rates = before ? processorRates(*before, *reading_) : ProcessorRates();
    const auto share = [&shares](auto member) { return shares ? Figure(std::invoke(member, *shares)) : std::nullopt; };
    busy_ = share(&ProcessorShares::busy);
    busyOfEach_ = before ? busyByProcessor(before->reading.each, reading->each) : std::map<int, double>();
    note({share(&ProcessorShares::user), share(&ProcessorShares::nice), share(&ProcessorShares::system),
        share(&ProcessorShares::idle), share(&ProcessorShares::ioWait), share(&ProcessorShares::interrupt),
        share(&ProcessorShares::steal), reading->load1Minute, reading->load5Minutes, reading->load15Minutes,
        figureOf(reading->runnableTasks), figureOf(reading->blockedTasks), rates.contextSwitches, rates.interrupts,
        rates.forks});
}

Value ProcessorStatCollector::state() const
{
    if (!reading_) {
        return nullptr;
    }
    Value state = namedLatest();
    if (busy_) {
        state["busy"] = rounded(*busy_);
    }
    Value each = Value::array();
    for (const ProcessorRecord& processor : reading_->reading.each) {
        Value one = {{"number", processor.number}};
        if (const auto busy = busyOfEach_.find(processor.number); busy != busyOfEach_.end()) {
            one["busy"] = rounded(busy->second);
        }
        if (const auto frequency = counters().frequencyHz(processor.number)) {
            one["frequency"] = *frequency;
        }
        each.push_back(std::move(one));
    }
    state["processors"] = std::move(each);
    return state;
}

void ProcessorStatCollector::addTo(HistoryCatalogue& catalogue)
{
    offer(catalogue, "processors", "CPU use", "%", shareColumns);
    offer(catalogue, "load", "Load", "", loadColumns);
    offer(catalogue, "tasks", "Tasks", "", taskColumns);
    offer(catalogue, "kernel", "Kernel events", "1/s", rateColumns);
}

} // namespace meridal
