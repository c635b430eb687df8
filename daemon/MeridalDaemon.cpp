// SPDX-License-Identifier: Apache-2.0
#include "daemon/MeridalDaemon.h"

#include "base/Log.h"
#include "base/Runtime.h"
#include "daemon/ApplicationService.h"
#include "daemon/BatteryService.h"
#include "daemon/DiskService.h"
#include "daemon/MRDXPCServerConnection.h"
#include "daemon/MachineService.h"
#include "daemon/NetworkService.h"
#include "daemon/ProcessTableService.h"
#include "daemon/SensorService.h"
#include "daemon/TrafficService.h"
#include "daemon/UptimeService.h"
#include "database/HistoryDatabaseController.h"
#include "platform/host/Host.h"

#include <algorithm>
#include <cassert>
#include <utility>

namespace meridal {

namespace {

constexpr double processInterval = 2.0;
constexpr double secondPassDelay = 0.6;
constexpr double networkInterval = 2.0;
constexpr double smartInterval = 30.0;
constexpr double readyDelay = 1.0;
constexpr int listLength = 20;

/// Passes that new requests may cause before the timer's next fire. A client starts its requests in one burst, one key
/// each, and every list is right at once with a pass for each; a client that starts for ever costs no more than this.
constexpr int mostPassesAtOnce = 8;

MeridalDaemon* sharedInstance = nullptr;

std::string typeOf(RequestKey key) { return std::to_string(mask(key)); }

} // namespace

MeridalDaemon::MeridalDaemon(
    Context& context, ProcessStatCollector& processes, ZAVPowerManager& power, Services services)
    : context_(context)
    , processes_(processes)
    , power_(power)
    , services_(services)
    , server_(*this)
    , networkActions_(context)
    , processTimer_(context.runtime)
    , networkTimer_(context.runtime)
    , smartTimer_(context.runtime)
    , views_(context, processes)
    , usage_(*context.host.selfUsage, context.runtime.monotonicTime())
{
    sharedInstance = this;
    start();
}

MeridalDaemon::~MeridalDaemon()
{
    services_.disks.setWanted({});
    power_.removeDelegate(*this);
    if (sharedInstance == this) {
        sharedInstance = nullptr;
    }
}

MeridalDaemon& MeridalDaemon::sharedDaemon()
{
    assert(sharedInstance);
    return *sharedInstance;
}

// Start and stop

void MeridalDaemon::start()
{
    Log& log = context_.log;
    log.info("Daemon smc");
    if (!log.hasJournal()) {
        log.addFiles(context_.runtime, context_.paths.logs);
    }
    DistributedNotifications& distributed = *context_.host.distributedNotifications;
    resetFansObservation_ = distributed.observe("Meridal-Daemon-ResetFans", [this] { resetFans(); });
    prepareCollectors();
    context_.runtime.after(
        readyDelay, lifetime_.guard([this] { context_.host.distributedNotifications->post("MeridalDaemonXPCReady"); }));
    prepareUptime();
    saveBootTime();
    log.info("Starting network");
    networkTimer_.startTimerWithInterval(
        networkInterval, [this] { updateNetwork(); }, true);
    updateNetwork();
    services_.machine.start();
    log.info("Starting processes");
    services_.applications.start();
    startProcessTimer();
    updateProcesses(); // so that the first client finds a table, and figures in the pass that its request causes
    log.info("Daemon started");
}

void MeridalDaemon::prepareCollectors()
{
    Log& log = context_.log;
    log.info("Prepating smc");
    services_.sensors.open();
    log.info("Prepating network");
    services_.network.prepare();
    log.info("Preparing smart");
    services_.disks.setWanted([this] { return wantsSMART(); });
    services_.disks.keepRecord();
    log.info("Preparing processes");
    processes_.setSharingCounts({
        .sharingProcessCPUCount = listLength,
        .sharingProcessMemoryCount = listLength,
        .sharingProcessNetworkCount = listLength,
        .sharingProcessDiskActivityCount = listLength,
        .sharingProcessPowerCount = unlimitedProcesses,
    });
    processes_.setUpdateMask(0); // the union over the clients, of which there are none yet
    sourceObservation_ = context_.notifications.observe(
        "PowerNotifierSourceChanged", &power_, [this](const void*, const Dictionary&) { powerSourceChanged(); });
    log.info("Preparing battery");
    services_.battery.prepare();
    log.info("Preparing power notifier");
    power_.addDelegate(*this);
    log.info("Preparing bandwidth"); // its collectors are there already, and idle
}

void MeridalDaemon::finalize()
{
    saveShutdownTime();
    services_.network.saveBandwidth({});
    if (services_.applications.isRecording()) {
        updateProcesses(); // what was used since the latest pass
    }
    services_.applications.save();
    if (context_.databases) {
        context_.databases->commitAllSync();
    }
}

// Processes

bool MeridalDaemon::readFiguresOf(std::int64_t key)
{
    const bool isDue = !processes_.hasRecentFigures(static_cast<std::uint32_t>(key));
    if (isDue) {
        updateProcesses();
    }
    return isDue;
}

/// What repeats all the time shares its wake-ups, most of all with the other reading of every two seconds.
void MeridalDaemon::startProcessTimer()
{
    processTimer_.startTimerWithInterval(
        processInterval, [this] { update(); }, true);
}

void MeridalDaemon::restartProcessTimer(bool atOnce)
{
    if (passesAtOnce_ >= mostPassesAtOnce) {
        return; // the second pass of the last restart is due within its 0.6 s and answers this one too
    }
    ++passesAtOnce_;
    processTimer_.startTimerWithInterval(secondPassDelay, [this] {
        updateProcesses();
        passesAtOnce_ = 0;
        startProcessTimer();
    });
    if (atOnce) {
        updateProcesses();
    }
}

void MeridalDaemon::update()
{
    ApplicationService& applications = services_.applications;
    const bool isWatched = processes_.updateMask() != 0 || services_.processTable.isWatched();
    if (isWatched || !applications.isRecording() || applications.isDue()) {
        updateProcesses();
    } else {
        usage_.tick(context_.runtime.monotonicTime());
    }
    applications.tick();
}

void MeridalDaemon::updateProcesses()
{
    const double began = context_.runtime.monotonicTime();
    const std::uint32_t wanted = processes_.updateMask();
    // CPU time is read in every pass, wanted or not, so that the first list a client gets already has figures.
    const std::uint32_t read =
        wanted | mask(RequestKey::Cpu) | services_.applications.wanted() | services_.processTable.wanted();
    const bool widened = read != wanted;
    if (widened) {
        processes_.setUpdateMask(read);
    }
    views_.beginPass();
    if (processes_.update().isRead) {
        services_.applications.measured(read);
        sendProcessLists();
    }
    services_.traffic.process(); // in every pass: who has ended since the last one is known by name in this one only
    if (services_.traffic.isWatched()) {
        sendNetworkList();
    }
    services_.applications.record();
    services_.processTable.passed();
    if (widened) {
        processes_.setUpdateMask(wanted);
    }
    ++passes_.count;
    passedAt_ = began;
    passes_.lastSeconds = context_.runtime.monotonicTime() - began;
    passes_.processes = processes_.processCount();
    usage_.tick(context_.runtime.monotonicTime());
}

void MeridalDaemon::sendProcessLists()
{
    using enum RequestKey;
    for (const auto& connection : server_.connections()) {
        for (const RequestKey list : {Cpu, Memory, Energy, Disk}) {
            if (connection->holds(list)) {
                connection->sendData(processList(list, connection->useHierachy(), connection->peer()));
            }
        }
    }
}

void MeridalDaemon::sendNetworkList()
{
    views_.forgetList(RequestKey::Network); // what capture has just added is not in an earlier one
    for (const auto& connection : server_.connections()) {
        connection->sendData(processList(RequestKey::Network, connection->useHierachy(), connection->peer()));
    }
}

EnvelopePtr MeridalDaemon::processList(RequestKey list, bool grouped, const Peer& peer)
{
    const auto viewer = views_.viewerOf(peer);
    EnvelopePtr& envelope = views_.list(viewer, list, grouped);
    if (!envelope) {
        std::string json = buildProcessList(list, views_.viewOf(viewer, grouped));
        envelope = std::make_shared<const Envelope>(static_cast<int>(mask(list)), std::move(json));
    }
    return envelope;
}

Value MeridalDaemon::infoForPids(const Value& pids, const Peer& peer)
{
    const auto viewer = views_.viewerOf(peer);
    return processes_.infoForPids(pids, [&](std::int32_t pid) { return views_.shows(viewer, pid); });
}

std::string MeridalDaemon::buildProcessList(RequestKey list, const ProcessView& view)
{
    switch (list) {
    case RequestKey::Cpu:
        return processes_.cpuProcesses(view);
    case RequestKey::Memory:
        return processes_.memoryProcesses(view);
    case RequestKey::Disk:
        return processes_.diskActivityProcesses(view);
    case RequestKey::Network: // with what of the traffic is no process's, where that is known
        return processes_.networkProcesses(view, services_.traffic.latestShares());
    case RequestKey::Energy:
        return processes_.powerProcesses(view);
    default:
        assert(false);
        return {};
    }
}

// Network

void MeridalDaemon::updateNetwork()
{
    services_.network.update();
    services_.machine.networkWasRead();
}

bool MeridalDaemon::startMonitoringNetworkActivity()
{
    TrafficService& traffic = services_.traffic;
    if (traffic.isWatched()) {
        traffic.start();
        return false;
    }
    // What was counted until now is the record's, and nothing that this client should take for bytes of two seconds.
    const bool isPassDue = traffic.isRecording() && context_.runtime.monotonicTime() - passedAt_ >= secondPassDelay;
    isPassDue ? updateProcesses() : traffic.process();
    traffic.start();
    processes_.clearBandwidth();
    views_.forgetList(RequestKey::Network);
    return isPassDue;
}

void MeridalDaemon::stopMonitoringNetworkActivity()
{
    services_.traffic.stop();
    processes_.clearBandwidth(); // of an interval that is over
}

// Disks

void MeridalDaemon::initializeSmart()
{
    if (!initializedSMART_) {
        initializedSMART_ = true;
        services_.disks.load();
        smartNeedsUpdate_ = !wantsSMART();
        smartTimer_.startTimerWithInterval(
            smartInterval, [this] { updateSMART(); }, true);
    }
}

void MeridalDaemon::askDisks(Task answered)
{
    initializeSmart();
    services_.disks.refresh(lifetime_.guard(std::move(answered)));
}

void MeridalDaemon::updateSMART()
{
    smartNeedsUpdate_ = !wantsSMART();
    if (!smartNeedsUpdate_) {
        services_.disks.update(lifetime_.guard([this] { sendSmartResults(); }));
    }
}

bool MeridalDaemon::wantsSMART() const
{
    const auto& connections = server_.connections();
    return std::any_of(connections.begin(), connections.end(), [](const auto& connection) {
        return connection->holds(RequestKey::SmartStatus) || connection->holds(RequestKey::SmartTemperatures);
    });
}

void MeridalDaemon::sendSmartResults()
{
    const EnvelopePtr temperatures = smartSensors();
    const EnvelopePtr status = smartStatus();
    for (const auto& connection : server_.connections()) {
        if (connection->holds(RequestKey::SmartTemperatures)) {
            connection->sendData(temperatures);
        }
        if (connection->holds(RequestKey::SmartStatus)) {
            connection->sendData(status);
        }
    }
}

EnvelopePtr MeridalDaemon::smartSensors()
{
    return std::make_shared<const Envelope>(
        Dictionary{{"type", typeOf(RequestKey::SmartTemperatures)}, {"sensors", services_.disks.temperatures()}});
}

EnvelopePtr MeridalDaemon::smartStatus()
{
    return std::make_shared<const Envelope>(
        Dictionary{{"type", typeOf(RequestKey::SmartStatus)}, {"disks", services_.disks.status()}});
}

// Battery

EnvelopePtr MeridalDaemon::internalBatterySourceInfo()
{
    Dictionary response{{"type", typeOf(RequestKey::InternalBattery)}};
    if (auto battery = services_.battery.internalBattery()) {
        response["battery"] = std::move(*battery);
    }
    return std::make_shared<const Envelope>(std::move(response));
}

void MeridalDaemon::powerSourceChanged()
{
    services_.battery.update();
    const EnvelopePtr source = internalBatterySourceInfo();
    for (const auto& connection : server_.connections()) {
        if (connection->holds(RequestKey::InternalBattery)) {
            connection->sendData(source);
        }
    }
}

// Fans

void MeridalDaemon::setT2SafetyTemperature(double degrees)
{
    t2SafetyTemperature_ = degrees;
    t2SafetyTemperatureTime_ = context_.runtime.wallTime();
}

// Uptime and sleep

void MeridalDaemon::prepareUptime() { services_.uptime.prepare(); }

void MeridalDaemon::saveBootTime() { services_.uptime.saveBootTime(); }

void MeridalDaemon::saveShutdownTime()
{
    services_.uptime.saveShutdownTime(Farewell::Shutdown, context_.runtime.wallTime(), {});
}

void MeridalDaemon::powerManagerWillSleep()
{
    sleepTime_ = context_.runtime.wallTime();
    // All without waiting, and side by side: the main queue must be free to give the allowance in time.
    services_.uptime.saveShutdownTime(Farewell::Sleep, sleepTime_, power_.delayAllowance());
    services_.network.saveBandwidth(power_.delayAllowance());
    services_.applications.save();
    if (context_.databases) { // what collectors have recorded since their last commit: the battery may run empty
        context_.databases->commitAll(power_.delayAllowance());
    }
}

void MeridalDaemon::powerManagerDidWake()
{
    if (sleepTime_ <= 0) {
        return;
    }
    services_.uptime.saveSleep(sleepTime_, sleepTime_ + power_.lastSleep());
    sleepTime_ = 0;
}

} // namespace meridal
