// SPDX-License-Identifier: Apache-2.0
#include "daemon/MachineService.h"

#include "daemon/MeridalHistory.h"
#include "daemon/Parameters.h"
#include "daemon/Watches.h"
#include "platform/Context.h"
#include "platform/host/Host.h"
#include "wire/Methods.h"

#include <utility>

namespace meridal {

namespace {

constexpr double leeway = 0.1; // of an interval
/// What is older is read again for who watches, s: less than any cadence, as the moments of a reading and of a watch differ.
constexpr double watchedAge = MachineService::askedInterval / 2;
/// File systems fill slowly, and looking at them costs twice as much as all the rest.
constexpr double watchedListAge = 5; // s
/// Of who wants nothing read on his account: what the record reads is never so old, s.
constexpr double passiveAge = 2 * MachineService::recordInterval;
constexpr double passiveListAge = 30;

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
    : context_(context)
    , processors_(context)
    , memory_(context)
    , pressure_(context)
    , blockDevices_(context)
    , graphics_(context)
    , interfaces_(context)
{
}

void MachineService::start()
{
    isStarted_ = true;
    if (isRecording_) {
        read();
        schedule();
    }
}

void MachineService::setRecording(bool recording)
{
    isRecording_ = recording;
    for (MachineStatCollector* each : collectors_) {
        each->history().setRecording(recording);
    }
    if (isStarted_) {
        schedule();
    }
}

bool MachineService::isAsked() const { return lastAsked_ && context_.runtime.monotonicTime() - *lastAsked_ < askedFor; }

void MachineService::schedule()
{
    const double wanted = isAsked() ? askedInterval : isRecording_ ? recordInterval : 0;
    if (wanted == interval_) {
        return;
    }
    interval_ = wanted;
    if (wanted == 0) {
        timer_.reset();
        return;
    }
    timer_ = context_.runtime.startTimer(context_.runtime.mainQueue(),
        {.first = wanted, .interval = wanted, .leeway = leeway * wanted, .onGrid = true}, [this] {
            read();
            schedule();
        });
}

void MachineService::read()
{
    lastRead_ = context_.runtime.monotonicTime();
    state_.reset();
    for (MachineStatCollector* each : collectors_) {
        if (each != &interfaces_) {
            each->updateStats();
        }
    }
    record();
}

Result<Value> MachineService::state(const Value& given)
{
    Parameters parameters(given);
    const bool withAll = parameters.flag("all");
    const bool isPassive = parameters.flag("passive");
    if (!parameters.valid()) {
        return parameters.failure();
    }
    if (isPassive) {
        readUnlessNewerThan(passiveAge);
    } else {
        noteQuestion();
    }
    Value state = *latestState(isPassive ? passiveListAge : askedInterval);
    if (withAll) {
        state["disks"] = blockDevices_.stateOfAll();
    }
    return state;
}

void MachineService::record()
{
    const double now = context_.runtime.monotonicTime();
    const bool commits = !lastCommit_ || now - *lastCommit_ >= HistoryRecorder::commitInterval;
    if (commits) {
        lastCommit_ = now;
    }
    for (MachineStatCollector* each : collectors_) {
        each->updateHistory();
    }
    if (commits) {
        interfaces_.history().runDatabaseQueue(); // what all of them have queued: their files are the same
    }
}

void MachineService::noteQuestion()
{
    lastAsked_ = context_.runtime.monotonicTime();
    readUnlessNewerThan(askedInterval);
    schedule();
}

void MachineService::readUnlessNewerThan(double seconds)
{
    if (lastRead_ && context_.runtime.monotonicTime() - *lastRead_ < seconds) {
        return;
    }
    read();
    // The timer's next reading comes half an interval after this one or later, or rates would be of milliseconds.
    interval_ = 0;
    schedule();
}

const std::shared_ptr<const Value>& MachineService::latestState(double listAge)
{
    const double now = context_.runtime.monotonicTime();
    if (!lastListed_ || now - *lastListed_ >= listAge) {
        lastListed_ = now;
        listFileSystems();
        state_.reset();
    }
    if (!state_) {
        state_ = std::make_shared<const Value>(
            Value{{"time", context_.runtime.wallTime()}, {"cpu", processors_.state()}, {"memory", memory_.state()},
                {"pressure", pressure_.state()}, {"disks", blockDevices_.state()}, {"fileSystems", fileSystems_},
                {"network", interfaces_.state()}, {"gpus", graphics_.state()}, {"memoryKills", memory_.kills()}});
    }
    return state_;
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
    methods.addAsyncMethod(
        method::machineState, [this](const Value& parameters, const Peer&, MeridalHistory::Reply reply) {
            if (isRecording_ || isAsked() || Parameters(parameters).flag("passive")) {
                return reply(state(parameters));
            }
            noteQuestion(); // the first reading in a while, and nothing to compare it with
            context_.runtime.after(askedInterval,
                lifetime_.guard([this, parameters, reply = std::move(reply)] { reply(state(parameters)); }));
        });
    for (MachineStatCollector* each : collectors_) {
        each->addTo(catalogue);
    }
}

void MachineService::addTo(Watches& watches)
{
    watches.addWatch(method::machineWatch, askedInterval, [this](const Peer&) {
        readUnlessNewerThan(watchedAge);
        return latestState(watchedListAge);
    });
}

} // namespace meridal
