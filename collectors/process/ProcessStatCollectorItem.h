// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/ShortText.h"
#include "collectors/process/PacketAttribution.h"
#include "collectors/process/ProcessFigures.h"
#include "platform/host/ProcessUnit.h"

#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace meridal {

/// What few processes need, so out of the way.
struct ProcessExtras {
    std::string name; ///< that is shown, where the table's is not: it is cut, or no UTF-8
    /// See ProcessSource::bundleLocation(); valid UTF-8, empty when unknown or not asked for.
    std::string bundleLocation;
    /// The pages that web content shows. No interface of a system tells them of another program's process, so nothing
    /// sets them as yet; whoever learns of them does, and lists name the process by them.
    std::vector<std::string> safariURLS;
    std::vector<ProcessConnection> connections;
    ChildCounters children;
};

/// Of those who ever did anything that is told by it.
struct ActiveProcess {
    ProcessActivity activity;
    std::vector<ProcessScore> scores; ///< oldest first
};

/// Everything that ends with a process, and what follows from it.
struct ProcessState {
    std::uint64_t startIdentity = 0; ///< as in ProcessRecord
    std::uint32_t firstPass = 0;     ///< the collector's pass that saw it first
    std::int32_t parentPid = -1;     ///< as it was at first
    /// Who answers for it; -1 until computed. Stays, but for a process that is in a unit, where it may change.
    std::int32_t controllingPid = -1;
    std::uint32_t threads = 0;  ///< of the latest pass, as are state and nice
    ProcessUnit unit = {};      ///< that it is in since the latest pass
    std::uint32_t uid = noUser; ///< of the latest pass that read it
    RunState state = RunState::Unknown;
    std::int8_t nice = 0;
    bool exists : 1 = false;       ///< seen by the latest pass
    bool loadedName : 1 = false;   ///< the name is final
    bool loadedBundle : 1 = false; ///< where its bundle is was asked for
    bool isLaunchd : 1 = false;    ///< starts the services of the machine or of a session
    bool isSafariWebContent : 1 = false;
    bool standsAlone : 1 = false;    ///< by its name, never grouped under another
    bool startsCommands : 1 = false; ///< by its name, what it starts is not part of it
    bool isKernelThread : 1 = false;
    bool temporary : 1 = false; ///< not in the table: it has ended, and stands in lists until the next pass
    std::uint8_t known : 3 = 0; ///< bits of KnownActivity, while it never was active
    ProcessFields read : 4 = ProcessFields::None; ///< the groups of counters of which there is a reading
    ProcessCounters counters;
    ProcessFigures figures;
    std::unique_ptr<ActiveProcess> active;
    std::unique_ptr<ProcessExtras> extras;
    /// The name as the process table has it, by which a process that starts another program is told.
    ShortText commandName;

    /// No user has this number: it is the system's "none".
    static constexpr std::uint32_t noUser = std::numeric_limits<std::uint32_t>::max();
};

/// One process of the machine: who it is, what it used up to the latest pass, and where it stands in its group. There
/// may be thousands, so it is kept small. Lives in a ProcessStatCollector and on its queue.
class ProcessStatCollectorItem : public ProcessState {
public:
    explicit ProcessStatCollectorItem(std::int32_t ownPid) : pid(ownPid) { }
    ProcessStatCollectorItem(const ProcessStatCollectorItem&) = delete;
    ProcessStatCollectorItem& operator=(const ProcessStatCollectorItem&) = delete;

    const std::int32_t pid;
    std::uint32_t place = 0; ///< in the collector's table; who has ended comes behind it
    /// The head of the group that it is under, or a member between; null: it heads one, or is alone. Built by the
    /// collector's createHierarchy2().
    ProcessStatCollectorItem* controller = nullptr;
    bool root() const { return controller == nullptr; }

    std::string key() const; ///< the pid in decimal
    /// Forgets everything but the pid: the process behind it is another one from here on.
    void startAfresh(std::uint64_t identity, std::uint32_t pass);
    std::optional<std::uint32_t> user() const { return uid == noUser ? std::nullopt : std::optional(uid); }
    /// Valid UTF-8, possibly cut or empty. Good until the next pass or name.
    std::string_view name() const;
    /// Comes after the one of the table.
    void setName(std::string name);
    const ProcessExtras& knownExtras() const; ///< empty ones where it has none
    ProcessExtras& makeExtras();
    ChildCounters children() const { return extras ? extras->children : ChildCounters(); }
    const ProcessActivity& activity() const { return active ? active->activity : idleActivities[known]; }
    OptionalDouble figure(const ProcessFigure& which) const
    {
        return which.value ? figures.*which.value : activity().*which.ofActivity;
    }

    /// Takes a reading: counters become rates. One that is too close to the one before is left out, and the interval goes on.
    void measure(const ProcessRecord& record, const ProcessPass& pass);

    // Traffic
    /// Nothing in the interval that begins.
    void clearBandwidth();
    void addTraffic(double downloadBytes, double uploadBytes);
    /// Takes traffic that belongs to one of its connections; answers whether it does.
    bool processPacket(const PacketAttribution& packet);
    /// Stamps the figures of the interval that are above 0. `wallTime`: s since 1970.
    void updatePCapBandwidth(double wallTime);

private:
    void updateMemoryWithTaskInfo(const ProcessRecord& record, const ProcessPass& pass);
    void updateCPUWithRusage(const ProcessRecord& record, const ProcessPass& pass);
    void updateIOWithRusage(const ProcessRecord& record, const ProcessPass& pass);
    void updatePowerWithRusage(const ProcessRecord& record, const ProcessPass& pass);
    void updatePowerUsageAverage(const OptionalDouble& power, const ProcessPass& pass);
    void forgetScores();
    void setDisk(const OptionalDouble& bytesRead, const OptionalDouble& bytesWritten, double wallTime);
    ActiveProcess& makeActive();
    void setKnown(unsigned what, bool isKnown) { known = ((known & ~what) | (isKnown ? what : 0U)) & KnowsAll; }
};

} // namespace meridal
