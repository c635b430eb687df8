#pragma once

#include "collectors/process/PacketAttribution.h"
#include "collectors/process/ProcessList.h"
#include "collectors/process/ProcessPass.h"
#include "platform/host/ProcessUnit.h"

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace meridal {

/// One process of the machine: who it is, what it used up to the latest pass, and where it stands in its group. There
/// may be thousands, so it is kept small. Lives in a ProcessStatCollector and on its queue.
class ProcessStatCollectorItem {
public:
    /// `shared` must outlive it.
    ProcessStatCollectorItem(std::int32_t pid, const ProcessShared& shared) : pid_(pid), shared_(&shared) { }
    ProcessStatCollectorItem(const ProcessStatCollectorItem&) = delete;
    ProcessStatCollectorItem& operator=(const ProcessStatCollectorItem&) = delete;

    // Identity
    std::int32_t pid() const { return pid_; }
    std::string key() const; ///< the pid in decimal
    /// Forgets everything but the pid: the process behind it is another one from here on.
    void startAfresh(std::uint64_t startIdentity, std::uint32_t pass);
    std::uint64_t startIdentity() const { return state_.startIdentity; }
    /// Number of the collector's pass that saw it first.
    std::uint32_t firstPass() const { return state_.firstPass; }
    std::int32_t parentPid() const { return state_.parentPid; } ///< as it was at first; -1 until then
    void setParentPid(std::int32_t pid) { state_.parentPid = pid; }
    /// -1 until computed; the answer stays, but for a process that is in a unit, where it may change.
    std::int32_t controllingPid() const { return state_.controllingPid; }
    void setControllingPid(std::int32_t pid) { state_.controllingPid = pid; }
    const ProcessUnit& unit() const { return state_.unit; } ///< that it is in since the latest pass
    void setUnit(const ProcessUnit& unit) { state_.unit = unit; }
    const std::string& name() const { return state_.name; } ///< valid UTF-8, possibly cut or empty
    void setName(std::string name);
    /// The name as the process table has it, by which a process that starts another program is told.
    const std::string& commandName() const { return state_.commandName; }
    void setCommandName(std::string_view name) { state_.commandName = name; }
    bool loadedName() const { return state_.loadedName; } ///< the name is final
    void setLoadedName(bool loaded) { state_.loadedName = loaded; }
    /// See ProcessSource::bundleLocation(); valid UTF-8, empty when unknown or not asked for.
    std::string_view bundleLocation() const;
    bool loadedBundle() const { return state_.loadedBundle; } ///< it was asked for
    void setLoadedBundle(bool loaded) { state_.loadedBundle = loaded; }
    void setBundleLocation(std::string location);
    /// The pages that web content shows. No interface of a system tells them of another program's process, so nothing
    /// sets them as yet; whoever learns of them does, and lists name the process by them.
    const std::vector<std::string>& safariURLS() const;

    // Flags
    bool exists() const { return state_.exists; } ///< seen by the latest pass
    void setExists(bool exists) { state_.exists = exists; }
    bool isLaunchd() const { return state_.isLaunchd; } ///< starts the services of the machine or of a session
    void setIsLaunchd(bool is) { state_.isLaunchd = is; }
    bool isSafariWebContent() const { return state_.isSafariWebContent; }
    bool standsAlone() const { return state_.standsAlone; }       ///< by its name, never grouped under another
    bool startsCommands() const { return state_.startsCommands; } ///< by its name, what it starts is not part of it
    /// Not in the table: it has ended, and stands in lists until the next pass.
    bool temporary() const { return state_.temporary; }
    void setTemporary(bool temporary) { state_.temporary = temporary; }
    bool foreground() const { return state_.foreground; }
    void setForeground(bool foreground) { state_.foreground = foreground; }

    // Time
    double updateTime() const { return state_.updateTime; }                 ///< s since 1970
    double updateTimePrevious() const { return state_.updateTimePrevious; } ///< likewise
    std::uint32_t sequence() const { return state_.sequence; }              ///< passes in which it was seen
    double tbfrequency() const { return shared_->tbfrequency; }             ///< units of CPU time per second

    // Measuring: one pass calls these in this order
    void beginPass(const ProcessPass& pass);
    /// Memory that was asked for and could not be read counts 0.
    void updateMemoryWithTaskInfo(const ProcessRecord& record, const ProcessPass& pass);
    /// Answers the seconds since the figure before: 0 where there is none. Absent when they are too few to tell anything;
    /// CPU and energy then stay as they are and the interval goes on.
    std::optional<double> updateCPUWithRusage(const ProcessRecord& record, const ProcessPass& pass);
    /// Answers whether it gave rates: the first reading gives none, nor does one that is too close to the one before.
    bool updateIOWithRusage(const ProcessRecord& record, const ProcessPass& pass);
    /// Answers whether there is an earlier reading of the wake-ups to subtract from; takes this one as such otherwise.
    bool beginWakeups(const ProcessRecord& record, const ProcessPass& pass);
    /// Only when wake-ups have begun. `elapsed` is what updateCPUWithRusage() answered.
    void updatePowerWithRusage(const ProcessRecord& record, const ProcessPass& pass, double elapsed);
    /// For releases with the older usage record, whose CPU time is taken as seconds.
    void updatePowerWithRusage2(const ProcessRecord& record, const ProcessPass& pass, double elapsed);
    void endPass();

    // CPU
    std::uint64_t cpuTime() const { return state_.cpuTime; } ///< cumulative, in units of the time base
    std::uint64_t cpuPreviousTime() const { return state_.cpuPreviousTime; }
    double lastUpdateCPU() const { return state_.lastUpdateCPU; } ///< s of the clock that cannot step
    double cpu() const { return state_.cpu; }                     ///< percent of one core, so possibly above 100

    // Memory, bytes
    double memory() const { return state_.memory; }
    double memoryFootprint() const { return state_.memoryFootprint; }
    double memoryAnonymous() const { return state_.memoryAnonymous; }
    double memoryCompressed() const { return state_.memoryCompressed; }

    // Disk
    double diskReadTotal() const { return static_cast<double>(state_.diskReadTotal); } ///< bytes
    double diskWriteTotal() const { return static_cast<double>(state_.diskWriteTotal); }
    double diskRead() const { return state_.diskRead; } ///< bytes per second
    double diskWrite() const { return state_.diskWrite; }
    double diskReadTime() const { return state_.diskReadTime; } ///< s since 1970 of the last figure above 0
    double diskWriteTime() const { return state_.diskWriteTime; }
    double diskUpdateTime() const { return state_.diskUpdateTime; } ///< s of the clock that cannot step
    void clearDiskActivity();

    // Network
    double networkDownload() const { return state_.networkDownload; } ///< bytes in the current interval
    double networkUpload() const { return state_.networkUpload; }
    void setNetworkDownload(double bytes) { state_.networkDownload = bytes; }
    void setNetworkUpload(double bytes) { state_.networkUpload = bytes; }
    double networkDownloadTime() const { return state_.networkDownloadTime; } ///< s since 1970 of the last above 0
    double networkUploadTime() const { return state_.networkUploadTime; }
    void setNetworkDownloadTime(double time) { state_.networkDownloadTime = time; }
    void setNetworkUploadTime(double time) { state_.networkUploadTime = time; }
    const std::vector<ProcessConnection>& connections() const;
    void setConnections(std::vector<ProcessConnection> connections);
    /// Takes traffic that belongs to one of its connections; answers whether it does.
    bool processPacket(const PacketAttribution& packet);
    /// Takes traffic that is known to be its own. `wallTime`: s since 1970.
    void processCachePacket(const PacketAttribution& packet, double wallTime);
    /// Stamps the figures of the interval that are above 0.
    void updatePCapBandwidth(double wallTime);

    // Energy
    double idleWakeups() const { return static_cast<double>(state_.idleWakeups); } ///< cumulative
    double idleWakeupsPrevious() const { return static_cast<double>(state_.idleWakeupsPrevious); }
    double power() const { return state_.power; }           ///< score of the latest interval
    double powerScore() const { return state_.powerScore; } ///< averaged over half a minute

    // Group. Built by the collector's createHierarchy2().
    /// Heads a group: is not placed under another.
    bool root() const { return controller_ == nullptr; }
    ProcessStatCollectorItem* controller() const { return controller_; }
    bool sharingUseHierachy() const { return sharingUseHierachy_; } ///< its totals may take in its children
    void leaveGroup();
    /// Puts it first among the children of another.
    void joinFront(ProcessStatCollectorItem& controller);
    void setController(ProcessStatCollectorItem* controller) { controller_ = controller; }
    /// The next one of the group that `top` heads, parents before children; null after the last.
    ProcessStatCollectorItem* nextInGroup(const ProcessStatCollectorItem& top) const { return next(top, true); }
    std::uint32_t mark() const { return mark_; } ///< scratch of whoever walks the table
    void setMark(std::uint32_t mark) { mark_ = mark; }

    // Totals: its own figure, and its group's where grouping is on
    double own(ProcessFigure figure) const;
    double total(ProcessFigure figure) const;
    double sharingTotal(ProcessFigure figure) const { return sharingTotals_[static_cast<std::size_t>(figure)]; }
    void setSharingTotal(ProcessFigure figure, double total)
    {
        sharingTotals_[static_cast<std::size_t>(figure)] = total;
    }
    double sharingTotalCPU() const { return sharingTotal(ProcessFigure::Cpu); }
    double sharingTotalMemory() const { return sharingTotal(ProcessFigure::Memory); }
    double sharingTotalMemoryFootprint() const { return sharingTotal(ProcessFigure::MemoryFootprint); }
    double sharingTotalPower() const { return sharingTotal(ProcessFigure::Power); }
    double sharingTotalRead() const { return sharingTotal(ProcessFigure::DiskRead); }
    double sharingTotalWrite() const { return sharingTotal(ProcessFigure::DiskWrite); }
    double sharingTotalDownload() const { return sharingTotal(ProcessFigure::Download); }
    double sharingTotalUpload() const { return sharingTotal(ProcessFigure::Upload); }
    /// s since 1970 when the figure was last above 0; 0 for figures without such a time.
    double lastActive(ProcessFigure figure) const;

    // Of the interface, and called by nothing here
    void setSafariURLS(std::vector<std::string> urls);
    std::vector<ProcessStatCollectorItem*> children() const;
    void setSharingUseHierachy(bool use) { sharingUseHierachy_ = use; }
    double totalCPUUsage() const { return total(ProcessFigure::Cpu); }
    double totalMemoryUsage() const { return total(ProcessFigure::Memory); }
    double totalMemoryFootprintUsage() const { return total(ProcessFigure::MemoryFootprint); }
    double totalPowerUsage() const { return total(ProcessFigure::Power); }
    double totalDiskRead() const { return total(ProcessFigure::DiskRead); }
    double totalDiskWrite() const { return total(ProcessFigure::DiskWrite); }
    double totalNetworkDownload() const { return total(ProcessFigure::Download); }
    double totalNetworkUpload() const { return total(ProcessFigure::Upload); }

private:
    /// Seldom needed, so out of the way.
    struct Extras {
        std::string bundleLocation;
        std::vector<std::string> safariURLS;
        std::vector<ProcessConnection> connections;
    };
    /// Everything that ends with the process.
    struct State {
        std::uint64_t startIdentity = 0;
        std::uint32_t firstPass = 0;
        std::uint32_t sequence = 0;
        std::int32_t parentPid = -1;
        std::int32_t controllingPid = -1;
        ProcessUnit unit = {};
        bool exists : 1 = false;
        bool loadedName : 1 = false;
        bool loadedBundle : 1 = false;
        bool isLaunchd : 1 = false;
        bool isSafariWebContent : 1 = false;
        bool standsAlone : 1 = false;
        bool startsCommands : 1 = false;
        bool foreground : 1 = false;
        bool temporary : 1 = false;
        bool cpuKnown : 1 = false;     ///< cpuTime is a reading to subtract from
        bool diskKnown : 1 = false;    ///< likewise both totals of the disk
        bool wakeupsKnown : 1 = false; ///< likewise idleWakeups
        double updateTime = 0;
        double updateTimePrevious = 0;
        std::uint64_t cpuTime = 0;
        std::uint64_t cpuPreviousTime = 0;
        double lastUpdateCPU = 0;
        double cpu = 0;
        std::uint64_t idleWakeups = 0;
        std::uint64_t idleWakeupsPrevious = 0;
        double lastUpdateWakeups = 0;
        double power = 0;
        double powerScore = 0;
        double memory = 0;
        double memoryFootprint = 0;
        double memoryAnonymous = 0;
        double memoryCompressed = 0;
        std::uint64_t diskReadTotal = 0;
        std::uint64_t diskWriteTotal = 0;
        double diskRead = 0;
        double diskWrite = 0;
        double diskReadTime = 0;
        double diskWriteTime = 0;
        double diskUpdateTime = 0;
        double networkDownload = 0;
        double networkUpload = 0;
        double networkDownloadTime = 0;
        double networkUploadTime = 0;
        std::string commandName;
        std::string name;
        std::unique_ptr<Extras> extras;
    };
    /// An energy score that counts in the average. Most processes never have one.
    struct Score {
        double time = 0; ///< monotonic s
        std::uint32_t number = 0;
        float power = 0;
    };

    Extras& extras();
    void updatePower(const ProcessRecord& record, const ProcessPass& pass, double elapsed, double cpuMicroseconds);
    void updatePowerUsageAverage(const ProcessPass& pass);
    ProcessStatCollectorItem* next(const ProcessStatCollectorItem& top, bool descend) const;

    std::int32_t pid_;
    std::uint32_t mark_ = 0;
    const ProcessShared* shared_;
    State state_;
    std::vector<Score> scores_; ///< of the last half minute, oldest first
    ProcessStatCollectorItem* controller_ = nullptr;
    ProcessStatCollectorItem* firstChild_ = nullptr;
    ProcessStatCollectorItem* nextSibling_ = nullptr;
    bool sharingUseHierachy_ = true;
    std::array<double, processFigureCount> sharingTotals_ = {};
};

} // namespace meridal
