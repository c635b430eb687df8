#pragma once

#include "base/ValueFwd.h"
#include "collectors/StatCollector.h"
#include "collectors/process/ProcessList.h"
#include "collectors/process/ProcessNames.h"
#include "collectors/process/ProcessStatCollectorItem.h"
#include "collectors/process/ReleaseRules.h"
#include "platform/host/TrafficCounters.h"
#include "wire/RequestKey.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace meridal {

/// Which applications use the CPU, memory, energy, disk and network. Each update reads the process table once, keeps one
/// item per live process and turns cumulative counters into rates; on request it ranks the items, one by one or grouped
/// under the application that is responsible for them. Everything here belongs to the main queue.
class ProcessStatCollector final : public StatCollector {
public:
    using Item = ProcessStatCollectorItem;

    explicit ProcessStatCollector(Context& context);
    ~ProcessStatCollector() override;

    /// The process-wide instance, on Context::shared().
    static ProcessStatCollector& sharedProcesses();

    // What is wanted
    std::uint32_t updateMask() const { return updateMask_; } ///< bits of RequestKey
    void setUpdateMask(std::uint32_t updateMask) { updateMask_ = updateMask; }
    /// Most entries in a list; 0 or less gives none.
    void setSharingProcessCPUCount(std::int32_t count) { sharingProcessCPUCount_ = count; }
    void setSharingProcessMemoryCount(std::int32_t count) { sharingProcessMemoryCount_ = count; }
    void setSharingProcessNetworkCount(std::int32_t count) { sharingProcessNetworkCount_ = count; }
    void setSharingProcessDiskActivityCount(std::int32_t count) { sharingProcessDiskActivityCount_ = count; }
    void setSharingProcessPowerCount(std::int32_t count) { sharingProcessPowerCount_ = count; }

    // The pass
    void update() { updateStats(); }
    void updateStats() override;
    /// No further passes.
    void disable() { setEnabled(false); }
    std::uint32_t sequence() const { return sequence_; }       ///< passes so far
    double tbfrequency() const { return shared_.tbfrequency; } ///< units of CPU time per second
    /// As the host tells it; 0 when it does not.
    double timebaseFrequency() const;
    /// Whether what these lists show was read in the last few seconds, or the table could not be read then.
    bool hasRecentFigures(std::uint32_t updateMask) const;

    // The table, in order of first sight
    const std::vector<Item*>& processes() const { return processes_; }
    std::size_t processCount() const { return processes_.size(); }
    Item* processForPid(std::int32_t pid); ///< null when there is none
    const Item* processForPid(std::int32_t pid) const;
    /// Adds an item, which must not be there yet.
    Item& createProcessWithPid(std::int32_t pid);
    void invalidateProcesses();
    /// Drops the items that do not exist; the groups, which may point to them, are dissolved if there were any.
    void removeMissingProcesses();
    /// Drops groups whose head does not exist from the grouped view.
    void removeMissingProcessesHierachy();

    // Who is no longer in the table
    /// A process that ended since the latest pass, and of whose traffic something is still to be told. Until the next pass it
    /// stands in the lists of traffic and, where those are grouped, in the group that it was in or would have been in.
    /// `name` and `ancestors` (the parent first) are for one that no pass ever saw. Null when nothing at all is known of it.
    Item* endedProcess(
        const ProcessIdentity& process, const std::string& name, std::span<const ProcessIdentity> ancestors);

    // Names
    /// Full name of the program that a process runs, or the default.
    std::string nameForPid(std::int32_t pid, const std::string& defaultName);
    /// As shown to people; asks for the full name if that is still open. Where groups are shown, the head of a container or
    /// sandbox has the name of that.
    std::string sharingNameForProcess(Item& item);
    /// Asks for where the item's application is to be found, once a program.
    void loadBundleLocation(Item& item);
    /// Takes an array of pids, answers an array of {"name", "pid"} for those that there are and that may be shown. Some of
    /// those that the latest pass did not have are looked for, a bounded number.
    Value infoForPids(const Value& pids, const std::function<bool(std::int32_t pid)>& mayShow);

    // Groups
    /// What lists rank: groups, or single processes.
    const std::vector<Item*>& sharingStorage(bool grouped) const { return grouped ? hierachy_ : processes_; }
    void createHierarchy2();
    std::int32_t controllingPidForPid(std::int32_t pid) const;
    bool isParentLaunchd(const Item& item) const;
    bool isProcessExcludedFromHierarchy(const Item& item) const;
    bool sharingUseHeirachy() const { return shared_.sharingUseHeirachy; }
    void setSharingUseHeirachy(bool use) { shared_.sharingUseHeirachy = use; }

    // Lists, as the JSON text of their dictionaries; `grouped` becomes sharingUseHeirachy
    std::string cpuProcesses(bool grouped);
    std::string memoryProcesses(bool grouped);
    std::string diskActivityProcesses(bool grouped);
    /// Beside the lists stands what `shares` has, if anything.
    std::string networkProcesses(bool grouped, const Dictionary& shares);
    std::string powerProcesses(bool grouped); ///< every process is in it, however many there are
    /// The table ranked by a figure, largest first; equal ones in table order, idle ones of disk and network by their
    /// last activity. Stores every total on the way: sharingTotal() of an item in the result is its figure.
    std::vector<ProcessListRow> ranked(ProcessFigure figure, bool grouped, std::int32_t limit);
    /// Keeps lists and names to these processes, until the next call: no figure of another goes into them, and who
    /// is grouped under another stands alone. Null: all. The caller keeps the set.
    void showOnly(const std::unordered_set<std::int32_t>* pids) { shown_ = pids; }
    /// Stores total() of every item as its sharingTotal(), each computed once.
    void updateTotals(ProcessFigure figure);

    // Traffic and disk
    void clearBandwidth();
    void updatePCapBandwidth();
    void clearDiskActivity();
    /// Offers a packet to every process; answers the pid of the one that took it, or 0.
    std::int32_t processPacket(const PacketAttribution& packet);
    /// Counts a packet for the process that it names.
    void processCachePacket(const PacketAttribution& packet);

    // Of the interface, and called by nothing here
    bool requireUpdateMask() const { return requireUpdateMask_; } ///< an empty mask then means no pass at all
    void setRequireUpdateMask(bool require) { requireUpdateMask_ = require; }
    std::int32_t sharingProcessCPUCount() const { return sharingProcessCPUCount_; }
    std::int32_t sharingProcessMemoryCount() const { return sharingProcessMemoryCount_; }
    std::int32_t sharingProcessNetworkCount() const { return sharingProcessNetworkCount_; }
    std::int32_t sharingProcessDiskActivityCount() const { return sharingProcessDiskActivityCount_; }
    std::int32_t sharingProcessPowerCount() const { return sharingProcessPowerCount_; }
    std::uint32_t newProcesses() const { return newProcesses_; } ///< that the latest pass saw first
    double timeNow() const { return timeNow_; }                  ///< s since 1970, of the latest pass
    double timePrevious() const { return timePrevious_; }        ///< of the one before; 0 until there was one
    const ProcessNameCache& nameCache() const { return nameCache_; }
    /// Heads of groups, in table order.
    const std::vector<Item*>& hierachy() const { return hierachy_; }
    std::string diskActivityProcesses2(bool grouped); ///< one figure and the time of the last activity
    std::string networkProcesses2(bool grouped, const Dictionary& shares); ///< with the time of the last activity

private:
    /// What ranking compares, copied out of the items, which lie all over the memory.
    struct Ranked {
        double total = 0;
        double lastActive = 0;   ///< only where it breaks a tie
        std::uint32_t place = 0; ///< in the table, so that equal ones keep their order
        Item* item = nullptr;
    };
    /// Writes the figures of a list's entry behind its pid and name.
    using AppendFigures = void (*)(std::string& entry, const Item& item);

    // ProcessStatCollector.cpp
    void beginPass();
    void numberScores();
    bool fetchProcesses();
    void noteGroupsRead();
    Item& itemForRecord(const ProcessRecord& record, std::size_t& cursor);
    void introduce(Item& item, const ProcessRecord& record);
    std::optional<std::string> askFullName(std::int32_t pid, const std::string& shortName);
    void nameProcess(Item& item, const ProcessRecord& record);
    void measure(Item& item, const ProcessRecord& record);
    void loadName(Item& item);
    std::optional<std::string> nameOfUnseen(std::int32_t pid);

    // ProcessHierarchy.cpp
    void dissolveHierarchy();
    bool bearsNameOfUnit(const Item& item) const;
    void findOldestOfUnits();
    void findControllingPid(Item& item) const;
    std::int32_t controllingPidInUnits(const Item& item) const;
    Item* controllerOf(const Item& item);
    const Item* elder(const Item& item, std::int32_t pid) const;
    void breakCycles();

    // EndedProcesses.cpp
    void keepDeparted();
    void forgetDeparted();
    Item* departedItem(const ProcessIdentity& process);
    Item* departedElder(const Item& item, std::int32_t pid);
    void nameEnded(Item& item, const std::string& name);
    void placeEnded(Item& item, std::span<const ProcessIdentity> ancestors);
    void listEnded(Item& first);
    Item* listEndedAlone(Item& item, bool underEnded);

    // ProcessLists.cpp
    /// Of one that has ended nobody can say any more who may see it: only those who see all.
    bool shows(const Item& item) const { return !shown_ || (!item.temporary() && shown_->contains(item.pid())); }
    bool isListed(const Item& item) const;
    std::span<Item* const> endedWith(ProcessFigure figure) const;
    std::span<const Ranked> rank(ProcessFigure figure, std::int32_t limit);
    void appendList(
        std::string& json, const char* name, ProcessFigure figure, std::int32_t limit, AppendFigures appendFigures);
    std::string diskList(bool grouped, AppendFigures read, AppendFigures written);
    std::string networkList(bool grouped, const Dictionary& shares, AppendFigures received, AppendFigures sent);

    ReleaseRules rules_;
    std::string serviceManagerName_;
    ProcessShared shared_;
    ProcessPass pass_;
    double lastScores_ = 0;          ///< monotonic s of the latest pass that keeps scores
    std::array<double, 4> readAt_{}; ///< monotonic s of the latest pass with each group of figures; 0 = never
    std::optional<double> failedAt_; ///< monotonic s of the latest pass, if it could not read the table
    bool knowsDiskRates_ = false;    ///< of anybody: there were two readings
    bool knowsScores_ = false;       ///< likewise, since wake-ups are read
    std::unordered_map<std::int32_t, Item> byPid_;
    std::vector<Item*> processes_;                         ///< the same in table order
    std::unordered_multimap<std::int32_t, Item> departed_; ///< by pid, who ended since the pass before
    std::vector<Item*> ended_;                             ///< of those, who are in the lists of traffic
    std::vector<Item*> hierachy_;
    std::unordered_map<std::uint32_t, const Item*> oldest_; ///< by number of the unit, without those that are shared
    std::vector<Item*> parentsFirst_; ///< the whole table, group by group, every parent before its children
    std::vector<Ranked> ranking_;     ///< kept for its memory
    const std::unordered_set<std::int32_t>* shown_ = nullptr;
    ProcessNameCache nameCache_;
    std::uint32_t updateMask_ = mask(RequestKey::Cpu);
    std::uint32_t sequence_ = 0;
    std::uint32_t newProcesses_ = 0;
    double timeNow_ = 0;
    double timePrevious_ = 0;
    std::int32_t sharingProcessCPUCount_ = 20;
    std::int32_t sharingProcessMemoryCount_ = 20;
    std::int32_t sharingProcessNetworkCount_ = 20;
    std::int32_t sharingProcessDiskActivityCount_ = 20;
    std::int32_t sharingProcessPowerCount_ = unlimitedProcesses;
    bool requireUpdateMask_ = false;
};

} // namespace meridal
