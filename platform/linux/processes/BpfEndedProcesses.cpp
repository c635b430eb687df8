// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/processes/BpfEndedProcesses.h"

#include "platform/linux/processes/ProcFigures.h"

#include <cstring>
#include <limits>
#include <utility>

namespace meridal {

namespace {

constexpr std::size_t mostPaths = 4096; // control groups

std::string_view endedName(const char* text, std::size_t room) { return {text, ::strnlen(text, room)}; }

/// From the folder of the group upwards, as far as it was told.
std::string pathOfPlace(const BpfEndedPlace& place)
{
    std::string path;
    for (const auto& folder : place.folders) {
        const std::string_view name = endedName(folder, sizeof folder);
        if (name.empty()) {
            break; // the root of the hierarchy, which has no name
        }
        path.insert(0, "/" + std::string(name));
    }
    return path;
}

BpfEndedSums operator-(const BpfEndedSums& now, const BpfEndedSums& before)
{
    return {.processes = now.processes - before.processes,
        .runTime = now.runTime - before.runTime,
        .userTime = now.userTime - before.userTime,
        .systemTime = now.systemTime - before.systemTime,
        .readBytes = now.readBytes - before.readBytes,
        .writtenBytes = now.writtenBytes - before.writtenBytes,
        .cancelledBytes = now.cancelledBytes - before.cancelledBytes,
        .voluntarySwitches = now.voluntarySwitches - before.voluntarySwitches};
}

void setFigures(EndedRecord& record, const BpfEndedSums& sums)
{
    record.processes = sums.processes;
    record.cpuTime = sums.runTime;
    record.cpuUser = proc::userPartOf(sums.runTime, sums.userTime, sums.systemTime);
    record.diskBytesRead = sums.readBytes;
    record.diskBytesWritten = proc::bytesWritten(sums.writtenBytes, sums.cancelledBytes, 0);
    record.wakeups = sums.voluntarySwitches;
}

} // namespace

bool BpfEndedProcesses::ByBytes::operator()(const BpfEndedKey& one, const BpfEndedKey& other) const
{
    return std::memcmp(&one, &other, sizeof one) < 0;
}

Result<std::unique_ptr<BpfEndedProcesses>> BpfEndedProcesses::attach(
    std::shared_ptr<CgroupUnits> units, std::uint64_t tick)
{
    auto object = BpfObject::load("process_ended");
    if (!object) {
        return Unexpected{object.error()};
    }
    auto frees = attachBpfTracepoint(object->program("add_ended"));
    if (!frees) {
        return Unexpected{frees.error()};
    }
    auto exits = attachBpfTracepoint(object->program("note_exit"));
    if (!exits) {
        return Unexpected{exits.error()};
    }
    return std::unique_ptr<BpfEndedProcesses>(
        new BpfEndedProcesses(std::move(*object), std::move(*exits), std::move(*frees), std::move(units), tick));
}

BpfEndedProcesses::BpfEndedProcesses(
    BpfObject object, Descriptor exits, Descriptor frees, std::shared_ptr<CgroupUnits> units, std::uint64_t tick)
    : object_(std::move(object))
    , exits_(std::move(exits))
    , frees_(std::move(frees))
    , units_(std::move(units))
    , tick_(tick)
{
}

std::uint64_t BpfEndedProcesses::beginPass()
{
    BpfEndedPass pass{};
    const auto done = runBpfProgram(object_.program("note_pass"), pass);
    beginning_ = done && *done == 0 ? pass.beginning : 0;
    return beginning_ != 0 ? beginning_ : std::numeric_limits<std::uint64_t>::max();
}

void BpfEndedProcesses::endPass()
{
    if (BpfEndedPass pass{.beginning = std::exchange(beginning_, 0)}; pass.beginning != 0) {
        static_cast<void>(runBpfProgram(object_.program("note_pass"), pass));
    }
}

void BpfEndedProcesses::takePlaces()
{
    std::vector<std::uint64_t> groups;
    std::vector<BpfEndedPlace> places;
    readBpfBatches(object_.map("places"), {.takesOut = true}, groups, places);
    if (paths_.size() + groups.size() > mostPaths) {
        paths_.clear();
    }
    for (std::size_t i = 0; i < groups.size(); ++i) {
        paths_.insert_or_assign(groups[i], pathOfPlace(places[i]));
    }
}

EndedRecord BpfEndedProcesses::recordOf(const BpfEndedKey& key, const BpfEndedSums& sums) const
{
    EndedRecord record{
        .known = key.known,
        .knownStart = key.knownStart / tick_,
        .isItself = (key.flags & BPF_ENDED_ITSELF) != 0,
        .own = key.own,
        .ownStart = key.ownStart / tick_,
        .isKernelThread = (key.flags & BPF_ENDED_KERNEL_THREAD) != 0,
        .unit = units_->ofCgroup(key.cgroup),
        .user = key.user,
    };
    setFigures(record, sums);
    for (std::size_t i = 0; i < record.names.size(); ++i) {
        record.names.at(i) = endedName(key.names[i], sizeof key.names[i]);
    }
    if (!record.unit) {
        if (const auto path = paths_.find(key.cgroup); path != paths_.end()) {
            record.unit = units_->at(path->second);
        }
    }
    return record;
}

void BpfEndedProcesses::takeRest()
{
    const std::uint32_t only = 0;
    BpfEndedSums now{};
    if (!readBpfMap(object_.map("beyond"), &only, &now) || now.processes == rest_.processes) {
        return;
    }
    setFigures(records_.emplace_back(EndedRecord{.isRest = true}), now - std::exchange(rest_, now));
}

/// Whether nobody adds to entries of the period before any more.
bool BpfEndedProcesses::isPeriodQuiet() const
{
    const std::uint32_t only = 0;
    BpfEndedAdding adding{};
    return readBpfMap(object_.map("adding"), &only, &adding) && adding.programs[(period_ + 1) % 2] == 0;
}

/// An entry is taken out when its period has been over for a call and no program is at it any more, and what came after it was
/// told is told then: one that is added to in the instant in which it is taken out would be lost.
void BpfEndedProcesses::takeEnded()
{
    if (!isPeriodQuiet()) {
        return; // a processor may stand still for long where it is a virtual one
    }
    ++period_;
    const std::uint32_t only = 0;
    static_cast<void>(writeBpfMap(object_.map("period"), &only, &period_));
    keys_.clear();
    sums_.clear();
    readBpfBatches(object_.map("ended"), {}, keys_, sums_);
    takePlaces(); // which are noted before their processes are counted
    const auto before = std::exchange(told_, {});
    std::vector<BpfEndedKey> over;
    for (std::size_t i = 0; i < keys_.size(); ++i) {
        if (keys_[i].period == period_) {
            continue; // the next call's
        }
        BpfEndedSums sums = sums_[i];
        if (keys_[i].period + 1 == period_) {
            if (sums.processes > 0) { // else the first of them is half counted, and told with the next call
                told_.emplace(keys_[i], sums);
            }
        } else {
            over.push_back(keys_[i]);
            const auto told = before.find(keys_[i]);
            sums = told == before.end() ? sums : sums - told->second;
        }
        if (sums.processes > 0) {
            records_.push_back(recordOf(keys_[i], sums));
        }
    }
    removeFromBpfMap(object_.map("ended"), std::as_bytes(std::span(over)), sizeof(BpfEndedKey));
}

std::span<const EndedRecord> BpfEndedProcesses::take()
{
    records_.clear();
    takeEnded();
    takeRest();
    return records_;
}

} // namespace meridal
