#include "daemon/MachineService.h"

#include "daemon/MeridalHistory.h"
#include "daemon/Parameters.h"
#include "platform/Context.h"
#include "platform/host/Host.h"
#include "wire/Methods.h"

#include <utility>

namespace meridal {

namespace {

constexpr double leeway = 0.1; // of an interval, s

Value describe(const FileSystemRecord& record)
{
    Value entry = {
        {"mount", record.mount}, {"device", record.device}, {"type", record.type}, {"readOnly", record.readOnly}};
    if (record.room) {
        entry["total"] = record.room->totalBytes;
        entry["used"] = record.room->usedBytes;
        entry["available"] = record.room->availableBytes;
        if (record.room->totalInodes && record.room->usedInodes) {
            entry["inodes"] = *record.room->totalInodes;
            entry["inodesUsed"] = *record.room->usedInodes;
        }
    }
    return entry;
}

} // namespace

MachineService::MachineService(Context& context)
    : context_(context), processors_(context), memory_(context), pressure_(context), blockDevices_(context)
{
}

void MachineService::start()
{
    read();
    schedule();
}

void MachineService::schedule()
{
    const bool isAsked = lastAsked_ && context_.runtime.monotonicTime() - *lastAsked_ < askedFor;
    const double wanted = isAsked ? askedInterval : recordInterval;
    if (wanted == interval_) {
        return;
    }
    interval_ = wanted;
    timer_ = context_.runtime.startTimer(
        context_.runtime.mainQueue(), {.first = wanted, .interval = wanted, .leeway = leeway * wanted}, [this] {
            read();
            schedule();
        });
}

void MachineService::read()
{
    lastRead_ = context_.runtime.monotonicTime();
    for (MachineStatCollector* each : collectors_) {
        each->updateStats();
        each->updateHistory();
    }
}

Result<Value> MachineService::state(const Value& given)
{
    if (Parameters parameters(given); !parameters.valid()) {
        return parameters.failure();
    }
    const double now = context_.runtime.monotonicTime();
    lastAsked_ = now;
    if (!lastRead_ || now - *lastRead_ >= askedInterval) {
        read();
        interval_ =
            0; // the timer's next reading comes a whole interval after this one, or rates would be of milliseconds
    }
    if (!lastListed_ || now - *lastListed_ >= askedInterval) {
        lastListed_ = now;
        listFileSystems();
    }
    schedule();
    return Value{{"time", context_.runtime.wallTime()}, {"cpu", processors_.state()}, {"memory", memory_.state()},
        {"pressure", pressure_.state()}, {"disks", blockDevices_.state()}, {"fileSystems", fileSystems_}};
}

void MachineService::listFileSystems()
{
    fileSystems_ = Value::array();
    for (const FileSystemRecord& record : context_.host.fileSystems->read()) {
        fileSystems_.push_back(describe(record));
    }
}

void MachineService::addTo(MeridalHistory& methods, HistoryCatalogue& catalogue)
{
    methods.addMethod(method::machineState, [this](const Value& parameters) { return state(parameters); });
    for (MachineStatCollector* each : collectors_) {
        each->addTo(catalogue);
    }
}

} // namespace meridal
