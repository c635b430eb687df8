// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collectors/process/PacketAttribution.h"
#include "collectors/process/ProcessFigures.h"
#include "platform/host/ProcessUnit.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace meridal {

/// What few processes need, so out of the way.
struct ProcessExtras {
    /// See ProcessSource::bundleLocation(); valid UTF-8, empty when unknown or not asked for.
    std::string bundleLocation;
    /// The pages that web content shows. No interface of a system tells them of another program's process, so nothing
    /// sets them as yet; whoever learns of them does, and lists name the process by them.
    std::vector<std::string> safariURLS;
    std::vector<ProcessConnection> connections;
};

/// Everything that ends with a process, and what follows from it.
struct ProcessState {
    std::uint64_t startIdentity = 0; ///< as in ProcessRecord
    std::uint32_t firstPass = 0;     ///< the collector's pass that saw it first
    std::int32_t parentPid = -1;     ///< as it was at first
    /// Who answers for it; -1 until computed. Stays, but for a process that is in a unit, where it may change.
    std::int32_t controllingPid = -1;
    ProcessUnit unit = {};              ///< that it is in since the latest pass
    RunState state = RunState::Unknown; ///< of the latest pass, as are the next two
    std::int8_t nice = 0;
    std::uint32_t threads = 0;
    std::optional<std::uint32_t> user; ///< of the latest pass that read it
    bool exists : 1 = false;           ///< seen by the latest pass
    bool loadedName : 1 = false;       ///< the name is final
    bool loadedBundle : 1 = false;     ///< where its bundle is was asked for
    bool isLaunchd : 1 = false;        ///< starts the services of the machine or of a session
    bool isSafariWebContent : 1 = false;
    bool standsAlone : 1 = false;    ///< by its name, never grouped under another
    bool startsCommands : 1 = false; ///< by its name, what it starts is not part of it
    bool isKernelThread : 1 = false;
    bool temporary : 1 = false; ///< not in the table: it has ended, and stands in lists until the next pass
    ProcessCounters counters;
    ProcessFigures figures;
    ProcessActivity activity;
    ProcessEnergy energy;
    /// The name as the process table has it, by which a process that starts another program is told.
    std::string commandName;
    std::string name; ///< valid UTF-8, possibly cut or empty; given by setName()
    std::unique_ptr<ProcessExtras> extras;
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
    void setName(std::string name);
    const ProcessExtras& knownExtras() const; ///< empty ones where it has none
    ProcessExtras& makeExtras();

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
    void updatePowerUsageAverage(const ProcessPass& pass);
};

} // namespace meridal
