// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collectors/process/GroupNaming.h"
#include "collectors/process/GroupSums.h"
#include "collectors/process/GroupTable.h"
#include "collectors/process/ProcessStatCollector.h"
#include "platform/host/EndedProcesses.h"
#include "platform/host/GraphicsClients.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace meridal {

struct Context;

/// What every application has used since it was made. Fed by every pass of the process collector, whoever asked for it: what
/// a process's counters have grown by since they were accounted last goes to the group that it is in. Processes that were there
/// before count from the first pass on, all others from their own start. What lived and died between two passes is told by
/// the host at its end; where the host cannot, by its parents, who count the CPU time of the children that they wait for, and
/// nothing else. Main queue only.
class GroupAccumulator {
public:
    GroupAccumulator(Context& context, ProcessStatCollector& processes);
    ~GroupAccumulator();
    GroupAccumulator(const GroupAccumulator&) = delete;
    GroupAccumulator& operator=(const GroupAccumulator&) = delete;

    /// After each pass that has read the table.
    void update();
    /// After each fold of traffic: the bytes that the items have for this interval, and those of it that are no process's.
    void addTraffic(const ProcessTable& table, std::uint64_t kernelReceived, std::uint64_t kernelSent);

    /// Number 0 is "other", 1 "kernel". Valid until the next pass.
    std::span<const GroupTotals> totals() const { return groups_.totals(); }
    /// s since 1970 of the first pass.
    double since() const { return since_; }
    /// What the packages have used that was nobody's work; absent where they do not tell what they use.
    std::optional<double> idleJoules() const { return idleJoules_; }
    /// Who was among the largest by CPU, memory, disk or network since the last call, at most 40; and begins anew.
    std::vector<ProcessMinute> takeMinute();
    /// Whether the host tells what processes have used by their end.
    bool knowsEnded() const { return knowsEnded_; }

private:
    using Item = ProcessStatCollectorItem;

    /// Passes in a process's life after which its group is looked up again: it may have changed its user or not been moved yet.
    static constexpr std::uint8_t firstLook = 2;
    static constexpr std::uint8_t secondLook = 4;
    /// From here on ages go in a circle, at one of which, another one for each pid, those in "other" are given another chance.
    static constexpr std::uint8_t circleStart = 64;
    static constexpr std::uint8_t circleEnd = 96;
    /// Passes for which somebody who has left the table is remembered: a zombie gives its last figures when it is waited for.
    static constexpr std::uint32_t longestAway = 256;
    /// Likewise once it has given them: its last bytes may still come.
    static constexpr std::uint32_t awayAfterEnd = 4;

    /// Cumulative counters of a process, as accounted.
    struct Marks {
        std::uint64_t cpu = 0; ///< units of the time base
        std::uint64_t user = 0;
        std::uint64_t read = 0;
        std::uint64_t written = 0;
        std::uint64_t wakeups = 0;

        bool operator==(const Marks& other) const = default;
    };
    /// What is kept of a process in the table, one for each in its order.
    struct Account {
        // What every pass looks at stands in one line of a processor's cache, what moves with the process in the other.
        std::int32_t pid = 0;
        std::int32_t parent = 0;
        std::uint64_t start = 0;
        GroupPlace place = GroupTable::other;
        std::uint64_t residentBytes = 0; ///< in the latest pass, as is the next
        std::uint64_t footprintBytes = 0;
        std::size_t name = 0; ///< by which the place was found: a hash; 0: it heads none
        std::uint32_t unit = 0;
        std::uint8_t age = 0;                      ///< passes; past the last of some it goes in a circle
        bool ran = false;                          ///< since the pass before
        bool isFinal = false;                      ///< what it has used by its end is accounted
        ProcessFields known = ProcessFields::None; ///< the groups of figures of which there is a mark
        float minuteCpu = 0;                       ///< s
        float minuteDisk = 0;                      ///< bytes
        float minuteNetwork = 0;
        Marks marks;
        std::uint64_t childCpu = 0; ///< as accounted, with what children have used that were in the table
        std::uint64_t childUser = 0;
    };
    struct Departed {
        Account account;
        std::uint32_t pass = 0; ///< in which it was missing
    };
    /// CPU time of children that are gone and were accounted themselves: their parent's counter has it as well.
    struct Inherited {
        std::uint64_t cpu = 0;
        std::uint64_t user = 0;
        std::uint32_t pass = 0;
    };
    /// A door to a graphics processor.
    struct GraphicsMark {
        explicit GraphicsMark(std::uint64_t busyNs) : ns(busyNs) { }
        std::uint64_t ns;       ///< as accounted
        std::uint32_t pass = 0; ///< in which it was met last
    };
    struct Gone {
        ProcessMinute minute;
        std::uint64_t start = 0;
    };

    // The table and the accounts side by side
    void alignAccounts();
    Account begunFor(const Item& item) const;
    void depart(const Account& account);
    void keepForMinute(const Account& account);
    void forgetDeparted();
    // Who is in which group
    void assignGroups();
    void countProcesses();
    static bool comesRound(const Account& account);
    bool isDue(const Account& account) const;
    void assignHeads();
    void assignMembers();
    void assignHead(Item& head, Account& account);
    GroupPlace placeOf(const Item& item);
    // Growth
    void addGrowth();
    void addGrowthOf(std::uint32_t place);
    static std::uint64_t takeGrowth(std::uint64_t& mark, std::uint64_t now);
    static Marks growthSince(Marks& marks, const Marks& now);
    static Marks marksOf(const EndedRecord& record);
    Marks growthOf(Account& account, const Item& item) const;
    Marks growthOfChildren(Account& account, const ChildCounters& children);
    void add(const GroupPlace& place, const Marks& growth);
    void addToMinute(Account& account, const Marks& growth) const;
    void addEnded();
    Account* accountOf(const EndedRecord& record);
    void addFinal(Account& account, const EndedRecord& record);
    void addUnmet(const EndedRecord& record);
    GroupPlace placeOfUnmet(const EndedRecord& record);
    std::optional<std::size_t> headAmong(const EndedRecord& record, const Account* known, const Item* item) const;
    Account* accountOf(std::int32_t pid, std::uint64_t start);
    void addInterrupts();
    void shareEnergy();
    std::vector<std::int32_t> mayUseGraphics() const;
    std::vector<GraphicsClient> graphicsByDoor();
    void addGraphics();
    void sumLevels();
    ProcessMinute minuteOf(const Account& account, const Item& item) const;

    Context& context_;
    ProcessStatCollector& processes_;
    GroupTable groups_;
    GroupNaming naming_;
    const double timeBase_; ///< units of CPU time per second; 0 = unknown
    bool knowsEnded_;
    const bool interruptsApart_;
    std::uint32_t pass_ = 0;
    double since_ = 0;
    double now_ = 0; ///< monotonic s, of the pass as is the next
    double interval_ = 0;

    std::vector<Account> accounts_;                            ///< by ProcessStatCollectorItem::place
    std::uint32_t tableNumber_ = 0;                            ///< of the table that the accounts were aligned with
    bool isTableNew_ = true;                                   ///< since the pass before
    std::uint32_t passNumber_ = 0;                             ///< the collector's, of the pass that was accounted last
    std::vector<std::uint32_t> ranPlaces_;                     ///< of who ran by that
    bool haveMoved_ = false;                                   ///< in this pass: heads, to other groups
    std::unordered_multimap<std::int32_t, Departed> departed_; ///< by pid
    std::unordered_map<std::int32_t, Inherited> inherited_;    ///< by pid of the parent
    std::vector<Gone> gone_;                                   ///< in this minute
    std::map<std::pair<std::uint32_t, std::uint64_t>, GraphicsMark> graphicsMarks_; ///< by device and door
    std::optional<std::uint64_t> interruptNs_;
    std::optional<double> packageJoules_;
    std::optional<double> idleJoules_;
    double leastPower_ = 0; ///< W; 0 = none seen yet
};

} // namespace meridal
