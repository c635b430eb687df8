#include "daemon/MachineService.h"

#include "daemon/MeridalHistory.h"
#include "daemon/Parameters.h"
#include "platform/Context.h"
#include "platform/host/Host.h"
#include "wire/Methods.h"

#include <array>
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

MachineService::~MachineService() = default;

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
    for (MachineStatCollector* each :
        std::initializer_list<MachineStatCollector*>{&processors_, &memory_, &pressure_, &blockDevices_}) {
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
    }
    schedule();
    return Value{{"time", context_.runtime.wallTime()}, {"cpu", processors_.state()}, {"memory", memory_.state()},
        {"pressure", pressure_.state()}, {"disks", blockDevices_.state()}, {"fileSystems", fileSystems()}};
}

Value MachineService::fileSystems() const
{
    Value systems = Value::array();
    for (const FileSystemRecord& record : context_.host.fileSystems->read()) {
        systems.push_back(describe(record));
    }
    return systems;
}

void MachineService::addTo(MeridalHistory& methods, HistoryCatalogue& catalogue)
{
    methods.addMethod(method::machineState, [this](const Value& parameters) { return state(parameters); });
    for (MachineStatCollector* each :
        std::initializer_list<MachineStatCollector*>{&processors_, &memory_, &pressure_, &blockDevices_}) {
        each->addTo(catalogue);
    }
}

} // namespace meridal
