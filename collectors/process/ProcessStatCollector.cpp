// SPDX-License-Identifier: Apache-2.0
#include "collectors/process/ProcessStatCollector.h"

#include "base/Prefetch.h"
#include "base/Text.h"
#include "platform/Context.h"
#include "platform/host/Host.h"
#include "wire/RequestKey.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace meridal {

namespace {

/// Intervals of fewer ticks than this tell nothing of the rate between them, nor do those shorter than this (s): requests
/// that come in a burst cause passes some milliseconds apart.
constexpr double ticksThatTell = 10;
constexpr double shortestInterval = 0.1;
/// s for which figures count as current: a pass is due every two.
constexpr double recently = 3;

/// Calls `take(index)` for each group that is in a set.
template <typename Take>
void forEachGroup(ProcessFields groups, Take take)
{
    for (std::size_t index = 0; (1U << index) < static_cast<std::uint32_t>(ProcessFields::All); ++index) {
        if (has(groups, static_cast<ProcessFields>(1U << index))) {
            take(index);
        }
    }
}

/// The groups of figures behind the lists that are wanted, and no more: each may cost a file per process.
ProcessFields fieldsFor(std::uint32_t updateMask)
{
    constexpr std::uint32_t measured =
        mask(RequestKey::Cpu) | mask(RequestKey::Memory) | mask(RequestKey::Disk) | mask(RequestKey::Energy);
    if ((updateMask & measured) == 0) {
        return ProcessFields::None;
    }
    ProcessFields fields = ProcessFields::Cpu;
    if (holds(updateMask, RequestKey::Memory)) {
        fields |= ProcessFields::Memory;
    }
    if (holds(updateMask, RequestKey::Disk)) {
        fields |= ProcessFields::Disk;
    }
    if (holds(updateMask, RequestKey::Energy)) {
        fields |= ProcessFields::Wakeups;
    }
    return fields;
}

} // namespace

ProcessStatCollector::ProcessStatCollector(Context& context)
    : StatCollector(context, "ProcessStatCollector")
    , rules_(ReleaseRules::of(*context.host.machine))
    , serviceManagerName_(context.host.machine->serviceManagerName())
{
    config()["xmlNoSamples"] = true;
    config()["xmlUseSelectionKey"] = true;
    pass_.timeBase = timebaseFrequency();
    pass_.footprintFromKernel = rules_.footprintFromKernel;
    // Scores of the older releases took units of CPU time for seconds, and stay comparable.
    pass_.scoreOfCpu = rules_.usesUsageV3 ? 1 : pass_.timeBase;
}

ProcessStatCollector::~ProcessStatCollector() = default;

ProcessStatCollector& ProcessStatCollector::sharedProcesses()
{
    // Never destroyed: at exit the context may go first.
    static auto& instance = *new ProcessStatCollector(Context::shared());
    return instance;
}

double ProcessStatCollector::timebaseFrequency() const { return std::max(0.0, context().host.processes->timeBase()); }

double ProcessStatCollector::energyScore(double cpuSeconds, double wakeups) const
{
    return wakeups * ProcessScore::ofWakeup + cpuSeconds * 100 * pass_.scoreOfCpu;
}

ProcessChanges ProcessStatCollector::update()
{
    changes_ = {};
    if (!enabled() || (requireUpdateMask_ && updateMask_ == 0)) {
        return changes_;
    }
    beginPass();
    if (fetchProcesses()) {
        changes_.isRead = true;
        if (met_ < processes_.size()) { // else it would be to look at everybody for nothing
            removeMissingProcesses();
        }
        if (changes_.childrenChanged) {
            ++tableNumber_;
            createHierarchy2();
        }
    }
    return changes_;
}

void ProcessStatCollector::beginPass()
{
    const Runtime& runtime = context().runtime;
    ProcessSource& source = *context().host.processes;
    forgetDeparted();
    ++pass_.number;
    pass_.wallTime = runtime.wallTime();
    pass_.monotonicTime = runtime.monotonicTime();
    pass_.wanted = source.alongWith(fieldsFor(updateMask_));
    pass_.shortestInterval = std::max(shortestInterval, ticksThatTell * source.cpuResolution());
    numberScores();
}

/// A pass too soon after another is not counted: a client that asks in quick succession would push everybody's past out of the
/// average.
void ProcessStatCollector::numberScores()
{
    const double sinceLatest = pass_.monotonicTime - lastScores_;
    if (has(pass_.wanted, ProcessFields::Wakeups)
        && (pass_.scoreNumber == 0 || sinceLatest >= pass_.shortestInterval)) {
        ++pass_.scoreNumber;
        lastScores_ = pass_.monotonicTime;
    }
}

void ProcessStatCollector::noteGroupsRead()
{
    forEachGroup(pass_.wanted, [this](std::size_t group) { readAt_.at(group) = pass_.monotonicTime; });
}

bool ProcessStatCollector::hasRecentFigures(std::uint32_t updateMask) const
{
    const double now = context().runtime.monotonicTime();
    if (failedAt_ && now - *failedAt_ < recently) {
        return true;
    }
    bool recent = pass_.number > 0;
    forEachGroup(fieldsFor(updateMask),
        [&](std::size_t group) { recent = recent && readAt_.at(group) > 0 && now - readAt_.at(group) < recently; });
    return recent;
}

/// Brings the table up to date with the host's. False when that could not be read: the table then stays as it was.
bool ProcessStatCollector::fetchProcesses()
{
    const auto records = context().host.processes->readProcesses(pass_.wanted);
    if (records.empty()) {
        failedAt_ = pass_.monotonicTime;
        return false;
    }
    failedAt_.reset();
    invalidateProcesses();
    movedPlaces_.clear();
    met_ = 0;
    std::size_t cursor = 0;
    for (const ProcessRecord& record : records) {
        if (record.status == ProcessStatus::Zombie) {
            continue;
        }
        Item& item = itemForRecord(record, cursor);
        if (!item.exists) { // else listed twice, as a process that was moved in the kernel's list meanwhile may be
            measure(item, record);
        }
    }
    noteGroupsRead();
    return true;
}

void ProcessStatCollector::measure(Item& item, const ProcessRecord& record)
{
    const auto countersOf = [](const Item& of) {
        const ProcessCounters& at = of.counters;
        return std::tuple(of.read, at.cpuTime, at.cpuUser, of.children().cpuTime, at.residentSize, at.diskReadTotal,
            at.diskWriteTotal, at.idleWakeups, of.figures.memoryFootprint);
    };
    const auto before = countersOf(item);
    item.measure(record, pass_);
    ++met_;
    if (countersOf(item) != before) {
        movedPlaces_.push_back(item.place);
    }
}

/// The record's item, made or started afresh as needed. `cursor` walks the table along with the records, which come in
/// much the same order, so that a look-up is the exception.
ProcessStatCollectorItem& ProcessStatCollector::itemForRecord(const ProcessRecord& record, std::size_t& cursor)
{
    Item* item = nullptr;
    if (cursor + prefetchDistance < processes_.size()) {
        prefetch(*processes_[cursor + prefetchDistance]);
    }
    if (cursor < processes_.size() && processes_[cursor]->pid == record.pid) {
        item = processes_[cursor++];
    } else {
        item = processForPid(record.pid);
    }
    if (!item) {
        item = &createProcessWithPid(record.pid);
        introduce(*item, record);
    } else if (item->startIdentity != record.startIdentity && !item->exists) {
        introduce(*item, record);
    } else if (std::string_view(item->commandName) != record.name) {
        nameProcess(*item, record); // it runs another program now
        changes_.childrenChanged = true;
    }
    if (item->unit != record.unit) { // moved, as desktops do with what they have just started
        item->unit = record.unit;
        item->loadedBundle = false;
        changes_.childrenChanged = true;
    }
    return *item;
}

/// A process seen for the first time; its item is new, or was that of an earlier process of the same pid.
void ProcessStatCollector::introduce(Item& item, const ProcessRecord& record)
{
    item.startAfresh(record.startIdentity, pass_.number);
    item.parentPid = record.parentPid;
    item.isKernelThread = record.isKernelThread;
    nameProcess(item, record);
    item.isLaunchd = record.pid == 1 || (!serviceManagerName_.empty() && item.name().starts_with(serviceManagerName_));
    changes_.childrenChanged = true;
    ++changes_.newProcesses;
}

void ProcessStatCollector::nameProcess(Item& item, const ProcessRecord& record)
{
    item.commandName = record.name;
    item.loadedBundle = false;
    std::string name = validUtf8(record.name);
    if (name.empty()) {
        item.setName(nameForPid(record.pid, name));
        item.loadedName = true;
        return;
    }
    const bool mayBeCut = context().host.processes->mayBeCut(record.name.size());
    if (mayBeCut) {
        // Programs share cut names ("desktop-portal-" is several), so a cached one only stands in until the process
        // itself is asked, before it is first shown.
        name = guessedName(std::move(name));
    }
    item.loadedName = !mayBeCut;
    item.setName(std::move(name));
}

/// A cut name as others of that name have it whole. One that does not begin like it belongs to a program that had renamed
/// itself.
std::string ProcessStatCollector::guessedName(std::string cut)
{
    const std::string* full = nameCache_.find(cut);
    if (full && full->starts_with(cut)) {
        return *full;
    }
    return cut;
}

ProcessStatCollectorItem* ProcessStatCollector::processForPid(std::int32_t pid)
{
    const auto entry = byPid_.find(pid);
    return entry == byPid_.end() ? nullptr : &entry->second;
}

const ProcessStatCollectorItem* ProcessStatCollector::processForPid(std::int32_t pid) const
{
    const auto entry = byPid_.find(pid);
    return entry == byPid_.end() ? nullptr : &entry->second;
}

ProcessStatCollectorItem& ProcessStatCollector::createProcessWithPid(std::int32_t pid)
{
    const auto [entry, isNew] = byPid_.try_emplace(pid, pid);
    if (isNew) {
        entry->second.place = static_cast<std::uint32_t>(processes_.size());
        processes_.push_back(&entry->second);
    }
    return entry->second;
}

void ProcessStatCollector::invalidateProcesses()
{
    for (Item* item : processes_) {
        item->exists = false;
    }
}

void ProcessStatCollector::removeMissingProcesses()
{
    const auto isMissing = [](const Item* item) { return !item->exists; };
    if (std::none_of(processes_.begin(), processes_.end(), isMissing)) {
        return;
    }
    std::uint32_t place = 0;
    for (Item* item : processes_) {
        item->controller = nullptr;
        item->place = item->exists ? place++ : item->place;
    }
    std::erase_if(processes_, isMissing);
    keepDeparted();
    changes_.childrenChanged = true;
}

std::optional<std::string> ProcessStatCollector::askFullName(std::int32_t pid, const std::string& shortName)
{
    const auto path = context().host.processes->executablePath(pid, shortName);
    auto full = path ? lastComponent(*path) : std::nullopt;
    if (full && !shortName.empty()) {
        nameCache_.store(validUtf8(shortName), *full);
    }
    return full;
}

std::string ProcessStatCollector::nameForPid(std::int32_t pid, const std::string& defaultName)
{
    return askFullName(pid, defaultName).value_or(validUtf8(defaultName));
}

/// Makes a name that may be cut final.
void ProcessStatCollector::loadName(Item& item)
{
    if (item.loadedName) {
        return;
    }
    item.loadedName = true;
    if (auto full = askFullName(item.pid, std::string(std::string_view(item.commandName)))) {
        item.setName(*std::move(full));
    }
}

/// The final name of a process that is not in the table, as if it were.
std::optional<std::string> ProcessStatCollector::nameOfUnseen(std::int32_t pid)
{
    ProcessSource& source = *context().host.processes;
    const auto command = source.commandName(pid);
    if (!command) {
        return std::nullopt;
    }
    const bool isFinal = !command->empty() && !source.mayBeCut(command->size());
    return isFinal ? validUtf8(*command) : nameForPid(pid, *command);
}

/// Of an application only the first process: what is started in an editor's terminal has a name of its own.
bool ProcessStatCollector::bearsNameOfUnit(const Item& item) const
{
    if (item.unit.kind == ProcessUnitKind::Shared) {
        return false;
    }
    const auto oldest = oldest_.find(item.unit.number);
    return item.unit.kind == ProcessUnitKind::Container || (oldest != oldest_.end() && oldest->second == &item);
}

std::string_view ProcessStatCollector::sharingNameForProcess(Item& item, bool grouped)
{
    loadName(item);
    if (grouped && item.root() && bearsNameOfUnit(item)) {
        shownName_ = context().host.processes->unitName(item.unit);
        if (!shownName_.empty()) {
            return shownName_;
        }
    }
    if (item.isSafariWebContent && !item.knownExtras().safariURLS.empty()) {
        shownName_ = displayNameOf(item.knownExtras().safariURLS);
        return shownName_;
    }
    return item.name();
}

void ProcessStatCollector::loadBundleLocation(Item& item)
{
    if (item.loadedBundle) {
        return;
    }
    item.loadedBundle = true;
    const auto location = context().host.processes->bundleLocation(item.pid, item.unit);
    if (location || item.extras) {
        item.makeExtras().bundleLocation = validUtf8(location.value_or(""));
    }
}

void ProcessStatCollector::clearBandwidth()
{
    for (const auto* items : {&processes_, &ended_}) {
        for (Item* item : *items) {
            item->clearBandwidth();
        }
    }
}

void ProcessStatCollector::updatePCapBandwidth()
{
    const double now = context().runtime.wallTime();
    for (const auto* items : {&processes_, &ended_}) {
        for (Item* item : *items) {
            item->updatePCapBandwidth(now);
        }
    }
}

std::int32_t ProcessStatCollector::processPacket(const PacketAttribution& packet)
{
    const auto taker =
        std::find_if(processes_.begin(), processes_.end(), [&](Item* item) { return item->processPacket(packet); });
    return taker == processes_.end() ? 0 : (*taker)->pid;
}

void ProcessStatCollector::processCachePacket(const PacketAttribution& packet)
{
    if (Item* item = processForPid(packet.pid)) {
        item->addTraffic(packet.downloadBytes, packet.uploadBytes);
        item->updatePCapBandwidth(context().runtime.wallTime());
    }
}

} // namespace meridal
