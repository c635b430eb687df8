// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/ValueFwd.h"
#include "collectors/StatCollector.h"
#include "collectors/process/ProcessNames.h"
#include "collectors/process/ProcessRanking.h"
#include "collectors/process/ProcessStatCollectorItem.h"
#include "collectors/process/ReleaseRules.h"
#include "platform/host/TrafficCounters.h"
#include "wire/RequestKey.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace meridal {

/// Most entries in each list; 0 or less gives none.
struct ProcessSharingCounts {
    std::int32_t sharingProcessCPUCount = 20;
    std::int32_t sharingProcessMemoryCount = 20;
    std::int32_t sharingProcessNetworkCount = 20;
    std::int32_t sharingProcessDiskActivityCount = 20;
    std::int32_t sharingProcessPowerCount = unlimitedProcesses;
};

/// What a pass brought.
struct ProcessChanges {
    bool isRead = false;            ///< the table; where it could not be, all stays as it was
    bool childrenChanged = false;   ///< somebody came, went, or belongs elsewhere
    std::uint32_t newProcesses = 0; ///< seen for the first time
};

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
    void setSharingCounts(const ProcessSharingCounts& counts) { counts_ = counts; }

    // The pass
    ProcessChanges update();
    void updateStats() override { update(); }
    /// Units of CPU time per second, as the host tells it; 0 when it does not.
    double timebaseFrequency() const;
    /// Score times seconds of so much work, however it is spread over time.
    double energyScore(double cpuSeconds, double wakeups) const;
    /// Whether what these lists show was read in the last few seconds, or the table could not be read then.
    bool hasRecentFigures(std::uint32_t updateMask) const;

    // The table, in order of first sight
    const std::vector<Item*>& processes() const { return processes_; }
    std::size_t processCount() const { return processes_.size(); }
    /// Another one after each pass in which somebody came, went, runs another program or belongs elsewhere.
    std::uint32_t tableNumber() const { return tableNumber_; }
    /// Of all passes, those included in which the table could not be read.
    std::uint32_t passNumber() const { return pass_.number; }
    /// Where those stand of whom the latest pass read other counters or levels than the one before. Of no meaning where that has
    /// changed the table.
    const std::vector<std::uint32_t>& movedPlaces() const { return movedPlaces_; }
    Item* processForPid(std::int32_t pid); ///< null when there is none
    const Item* processForPid(std::int32_t pid) const;
    /// Adds an item, which must not be there yet.
    Item& createProcessWithPid(std::int32_t pid);
    void invalidateProcesses();
    /// Drops the items that do not exist; the groups, which may point to them, are dissolved if there were any.
    void removeMissingProcesses();
    /// What rankings are made of. Good until the next pass.
    ProcessTable table() const { return {.processes = processes_, .ended = ended_}; }

    // Who is no longer in the table
    /// A process that ended since the latest pass, and of whose traffic something is still to be told. Until the next pass it
    /// stands in the lists of traffic and, where those are grouped, in the group that it was in or would have been in.
    /// `name` and `ancestors` (the parent first) are for one that no pass ever saw. Null when nothing at all is known of it.
    Item* endedProcess(
        const ProcessIdentity& process, const std::string& name, std::span<const ProcessIdentity> ancestors);

    /// One that the latest pass found missing, as it was; null when it did not. Until the next pass.
    Item* departedItem(const ProcessIdentity& process);

    // Names
    /// Full name of the program that a process runs, or the default.
    std::string nameForPid(std::int32_t pid, const std::string& defaultName);
    /// As shown to people; asks for the full name if that is still open. Where groups are shown, the head of a container or
    /// sandbox has the name of that. Good until the next call.
    std::string_view sharingNameForProcess(Item& item, bool grouped);
    /// Whether the unit that it is in is called after it, or it after the unit. Of an application that is the first process alone.
    bool bearsNameOfUnit(const Item& item) const;
    /// Asks for where the item's application is to be found, once a program.
    void loadBundleLocation(Item& item);
    /// Takes an array of pids, answers an array of {"name", "pid"} for those that there are and that may be shown. Some of
    /// those that the latest pass did not have are looked for, a bounded number.
    Value infoForPids(const Value& pids, const std::function<bool(std::int32_t pid)>& mayShow);

    // Groups
    void createHierarchy2();
    std::int32_t controllingPidForPid(std::int32_t pid) const;
    bool isParentLaunchd(const Item& item) const;
    bool isProcessExcludedFromHierarchy(const Item& item) const;

    // Lists, as the JSON text of their dictionaries
    std::string cpuProcesses(const ProcessView& view);
    std::string memoryProcesses(const ProcessView& view);
    std::string diskActivityProcesses(const ProcessView& view);
    /// Beside the lists stands what `shares` has, if anything.
    std::string networkProcesses(const ProcessView& view, const Dictionary& shares);
    std::string powerProcesses(const ProcessView& view); ///< every process is in it, however many there are

    // Traffic and disk
    void clearBandwidth();
    void updatePCapBandwidth();
    /// Offers a packet to every process; answers the pid of the one that took it, or 0.
    std::int32_t processPacket(const PacketAttribution& packet);

    // Of the interface, and called by nothing here
    /// No further passes.
    void disable() { setEnabled(false); }
    /// Counts a packet for the process that it names.
    void processCachePacket(const PacketAttribution& packet);
    bool requireUpdateMask() const { return requireUpdateMask_; } ///< an empty mask then means no pass at all
    void setRequireUpdateMask(bool require) { requireUpdateMask_ = require; }
    /// One figure and the time of the last activity.
    std::string diskActivityProcesses2(const ProcessView& view);
    std::string networkProcesses2(const ProcessView& view, const Dictionary& shares); ///< likewise

private:
    /// Two lists of one reply, by what is received or read and by what is sent or written.
    struct ListPair;
    /// Whether entries have both figures, or one and the time of the last activity.
    enum class PairEntries { BothFigures, FigureAndTime };

    // ProcessStatCollector.cpp
    void beginPass();
    void numberScores();
    bool fetchProcesses();
    void noteGroupsRead();
    void measure(Item& item, const ProcessRecord& record);
    Item& itemForRecord(const ProcessRecord& record, std::size_t& cursor);
    void introduce(Item& item, const ProcessRecord& record);
    std::optional<std::string> askFullName(std::int32_t pid, const std::string& shortName);
    void nameProcess(Item& item, const ProcessRecord& record);
    std::string guessedName(std::string cut);
    void loadName(Item& item);
    std::optional<std::string> nameOfUnseen(std::int32_t pid);

    // ProcessHierarchy.cpp
    void findOldestOfUnits();
    void findControllingPid(Item& item) const;
    std::int32_t controllingPidInUnits(const Item& item) const;
    Item* controllerOf(const Item& item);
    const Item* elder(const Item& item, std::int32_t pid) const;
    void breakCycles();

    // EndedProcesses.cpp
    void keepDeparted();
    void forgetDeparted();
    Item* departedElder(const Item& item, std::int32_t pid);
    void nameEnded(Item& item, const std::string& name);
    void placeEnded(Item& item, std::span<const ProcessIdentity> ancestors);
    void listEnded(Item& first);
    Item* listEndedAlone(Item& item, bool underEnded);

    // ProcessLists.cpp
    template <typename AppendFigures>
    void appendList(std::string& json, const char* name, const ProcessView& view, std::size_t figure,
        std::int32_t limit, AppendFigures appendFigures);
    std::string appendPair(const ListPair& pair, const ProcessView& view, std::int32_t limit, PairEntries entries);
    std::string diskList(const ProcessView& view, PairEntries entries);
    std::string networkList(const ProcessView& view, const Dictionary& shares, PairEntries entries);

    ReleaseRules rules_;
    std::string serviceManagerName_;
    ProcessPass pass_;
    double lastScores_ = 0;          ///< monotonic s of the latest pass that keeps scores
    std::array<double, 4> readAt_{}; ///< monotonic s of the latest pass with each group of figures; 0 = never
    std::optional<double> failedAt_; ///< monotonic s of the latest pass, if it could not read the table
    std::unordered_map<std::int32_t, Item> byPid_;
    std::vector<Item*> processes_; ///< the same in table order
    std::vector<std::uint32_t> movedPlaces_;
    std::size_t met_ = 0;                                   ///< of them, by the latest pass
    std::unordered_multimap<std::int32_t, Item> departed_;  ///< by pid, who ended since the pass before
    std::vector<Item*> ended_;                              ///< of those, who are in the lists of traffic
    std::unordered_map<std::uint32_t, const Item*> oldest_; ///< by number of the unit, without those that are shared
    ProcessRanking ranking_;
    std::string shownName_;  ///< the latest that is not an item's own
    ProcessChanges changes_; ///< of the pass that runs
    std::uint32_t tableNumber_ = 0;
    ProcessNameCache nameCache_;
    std::uint32_t updateMask_ = mask(RequestKey::Cpu);
    ProcessSharingCounts counts_;
    bool requireUpdateMask_ = false;
};

} // namespace meridal
