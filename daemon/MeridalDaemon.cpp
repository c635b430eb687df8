#include "daemon/MeridalDaemon.h"

#include "base/Log.h"
#include "base/Runtime.h"
#include "daemon/MRDXPCServerConnection.h"
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

void call(const std::function<void()>& port)
{
    if (port) {
        port();
    }
}

template <typename Port, typename... Arguments>
Value listFrom(const Port& port, const Arguments&... arguments)
{
    Value list = port ? port(arguments...) : Value();
    return list.is_array() ? list : Value::array();
}

std::string typeOf(RequestKey key) { return std::to_string(mask(key)); }

} // namespace

MeridalDaemon::MeridalDaemon(
    Context& context, ProcessStatCollector& processes, ZAVPowerManager& power, CollectorPorts ports)
    : context_(context)
    , processes_(processes)
    , power_(power)
    , ports_(std::move(ports))
    , server_(*this)
    , networkActions_(context, ports_)
    , processTimer_(context.runtime)
    , views_(context, processes)
    , usage_(*context.host.selfUsage, context.runtime.monotonicTime())
{
    sharedInstance = this;
    start();
}

MeridalDaemon::~MeridalDaemon()
{
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
    log.addFiles(context_.runtime, context_.paths.logs);
    DistributedNotifications& distributed = *context_.host.distributedNotifications;
    resetFansObservation_ = distributed.observe("Meridal-Daemon-ResetFans", [this] { resetFans(); });
    prepareCollectors();
    context_.runtime.after(
        readyDelay, lifetime_.guard([this] { context_.host.distributedNotifications->post("MeridalDaemonXPCReady"); }));
    prepareUptime();
    saveBootTime();
    log.info("Starting network");
    updateNetwork();
    log.info("Starting processes");
    processTimer_.startTimerWithInterval(processInterval, [this] { update(); });
    update(); // so that the first client finds a table, and figures in the pass that its request causes
    log.info("Daemon started");
}

void MeridalDaemon::prepareCollectors()
{
    Log& log = context_.log;
    log.info("Prepating smc");
    call(ports_.openSensors);
    log.info("Prepating network");
    call(ports_.prepareNetwork);
    log.info("Preparing smart");
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
    call(ports_.prepareBattery);
    log.info("Preparing power notifier");
    power_.addDelegate(*this);
    log.info("Preparing bandwidth");
    call(ports_.prepareCapture);
}

void MeridalDaemon::finalize()
{
    saveShutdownTime();
    if (ports_.saveBandwidth) {
        ports_.saveBandwidth({});
    }
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

void MeridalDaemon::restartProcessTimer(bool atOnce)
{
    if (passesAtOnce_ >= mostPassesAtOnce) {
        return; // the second pass of the last restart is due within its 0.6 s and answers this one too
    }
    ++passesAtOnce_;
    processTimer_.startTimerWithInterval(secondPassDelay, [this] {
        updateProcesses();
        passesAtOnce_ = 0;
        processTimer_.startTimerWithInterval(processInterval, [this] { update(); });
    });
    if (atOnce) {
        updateProcesses();
    }
}

void MeridalDaemon::updateProcesses()
{
    const double began = context_.runtime.monotonicTime();
    const std::uint32_t wanted = processes_.updateMask();
    const bool widened = !holds(wanted, RequestKey::Cpu);
    if (widened) {
        // CPU time is read in every pass, wanted or not, so that the first list a client gets already has figures.
        processes_.setUpdateMask(wanted | mask(RequestKey::Cpu));
    }
    views_.beginPass();
    if (processes_.update().isRead) {
        sendProcessLists();
    }
    if (holds(processes_.updateMask(), RequestKey::Network)) {
        call(ports_.processCapture);
        sendNetworkList();
    }
    if (widened) {
        processes_.setUpdateMask(wanted);
    }
    ++passes_.count;
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
        return processes_.networkProcesses(view, ports_.trafficShares ? ports_.trafficShares() : Dictionary());
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
    if (!ports_.updateNetwork) {
        return; // no interface collector: no tick either, for every tick is a wake-up
    }
    context_.runtime.after(networkInterval, lifetime_.guard([this] { updateNetwork(); }));
    ports_.updateNetwork();
}

void MeridalDaemon::startMonitoringNetworkActivity() { call(ports_.startCapture); }

void MeridalDaemon::stopMonitoringNetworkActivity() { call(ports_.stopCapture); }

// Disks

void MeridalDaemon::initializeSmart()
{
    if (!initializedSMART_) {
        initializedSMART_ = true;
        call(ports_.loadDisks);
        scheduleSMART();
    }
}

void MeridalDaemon::askDisks(Task answered)
{
    initializeSmart();
    if (ports_.refreshDisks) {
        ports_.refreshDisks(lifetime_.guard(std::move(answered)));
    } else {
        answered();
    }
}

void MeridalDaemon::scheduleSMART()
{
    smartNeedsUpdate_ = !wantsSMART();
    if (ports_.updateDisks) {
        context_.runtime.after(smartInterval, lifetime_.guard([this] { updateSMART(); }));
    }
}

void MeridalDaemon::updateSMART()
{
    scheduleSMART();
    if (!smartNeedsUpdate_ && ports_.updateDisks) {
        ports_.updateDisks(lifetime_.guard([this] { sendSmartResults(); }));
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
    Value sensors = ports_.diskTemperatures ? ports_.diskTemperatures() : Value::array();
    return std::make_shared<const Envelope>(
        Dictionary{{"type", typeOf(RequestKey::SmartTemperatures)}, {"sensors", std::move(sensors)}});
}

EnvelopePtr MeridalDaemon::smartStatus()
{
    Value disks = ports_.diskStatus ? ports_.diskStatus() : Value::array();
    return std::make_shared<const Envelope>(
        Dictionary{{"type", typeOf(RequestKey::SmartStatus)}, {"disks", std::move(disks)}});
}

// Battery

EnvelopePtr MeridalDaemon::internalBatterySourceInfo()
{
    Dictionary response{{"type", typeOf(RequestKey::InternalBattery)}};
    if (auto battery = ports_.internalBattery ? ports_.internalBattery() : std::nullopt) {
        response["battery"] = std::move(*battery);
    }
    return std::make_shared<const Envelope>(std::move(response));
}

void MeridalDaemon::powerSourceChanged()
{
    call(ports_.updateBattery);
    const EnvelopePtr source = internalBatterySourceInfo();
    for (const auto& connection : server_.connections()) {
        if (connection->holds(RequestKey::InternalBattery)) {
            connection->sendData(source);
        }
    }
}

// Sensors

std::vector<double> MeridalDaemon::sensorValues(const Value& configurations, PowerDetail detail)
{
    auto values = ports_.sensorValues ? ports_.sensorValues(configurations, detail) : std::vector<double>();
    values.resize(configurations.size());
    return values;
}

Value MeridalDaemon::supportedElectricSensors(const Value& selection, PowerDetail detail)
{
    return listFrom(ports_.supportedElectricSensors, selection, detail);
}

Value MeridalDaemon::supportedArmSensors(const Value& selection)
{
    return listFrom(ports_.supportedArmSensors, selection);
}

Value MeridalDaemon::supportedFans(const Value& selection) { return listFrom(ports_.supportedFans, selection); }

void MeridalDaemon::setT2SafetyTemperature(double degrees)
{
    t2SafetyTemperature_ = degrees;
    t2SafetyTemperatureTime_ = context_.runtime.wallTime();
}

// Uptime and sleep

void MeridalDaemon::prepareUptime() { call(ports_.prepareUptime); }

void MeridalDaemon::saveBootTime() { call(ports_.saveBootTime); }

void MeridalDaemon::saveShutdownTime()
{
    if (ports_.saveShutdownTime) {
        ports_.saveShutdownTime(Farewell::Shutdown, context_.runtime.wallTime(), {});
    }
}

void MeridalDaemon::powerManagerWillSleep()
{
    sleepTime_ = context_.runtime.wallTime();
    // All without waiting, and side by side: the main queue must be free to give the allowance in time.
    if (ports_.saveShutdownTime) {
        ports_.saveShutdownTime(Farewell::Sleep, sleepTime_, power_.delayAllowance());
    }
    if (ports_.saveBandwidth) {
        ports_.saveBandwidth(power_.delayAllowance());
    }
    if (context_.databases) { // what collectors have recorded since their last commit: the battery may run empty
        context_.databases->commitAll(power_.delayAllowance());
    }
}

void MeridalDaemon::powerManagerDidWake()
{
    if (sleepTime_ <= 0) {
        return;
    }
    if (ports_.saveSleep) {
        ports_.saveSleep(sleepTime_, sleepTime_ + power_.lastSleep());
    }
    sleepTime_ = 0;
}

} // namespace meridal
