// SPDX-License-Identifier: Apache-2.0
// The process entry: reads the command line, makes sure that it is the only daemon on its root, builds the house from
// the ground up, serves until a signal ends it.

#include "daemon/main.h"

#include "base/Log.h"
#include "base/NotificationCenter.h"
#include "base/Runtime.h"
#include "base/Text.h"
#include "collectors/battery/BatteryStatCollectorMac.h"
#include "collectors/disks/SMARTStatCollector.h"
#include "collectors/network/NetworkStatCollectorMac.h"
#include "collectors/process/NetworkStatisticsStatCollector.h"
#include "collectors/process/PacketStatCollector.h"
#include "collectors/process/ProcessStatCollector.h"
#include "collectors/process/TrafficCounterCollector.h"
#include "collectors/sensors/SensorsStatCollectorMac.h"
#include "collectors/uptime/UptimeStatCollectorMac.h"
#include "daemon/ApplicationHistory.h"
#include "daemon/ApplicationService.h"
#include "daemon/BatteryService.h"
#include "daemon/Configuration.h"
#include "daemon/ConfigurationService.h"
#include "daemon/DiskService.h"
#include "daemon/HistoryQuestions.h"
#include "daemon/MachineDescription.h"
#include "daemon/MachineService.h"
#include "daemon/MeridalDaemon.h"
#include "daemon/MeridalHistory.h"
#include "daemon/MomentService.h"
#include "daemon/NetworkService.h"
#include "daemon/ProcessTableService.h"
#include "daemon/SensorService.h"
#include "daemon/StatusReport.h"
#include "daemon/TrafficService.h"
#include "daemon/UptimeService.h"
#include "daemon/Watchdog.h"
#include "daemon/Watches.h"
#include "daemon/ZAVPowerManager.h"
#include "daemon/transport/InstanceLock.h"
#include "daemon/transport/UnixSocketListener.h"
#include "database/HistoryDatabaseController.h"
#include "history/HistoryRecorder.h"
#include "platform/Context.h"
#include "platform/PlatformController.h"
#include "platform/host/Host.h"
#include "wire/Methods.h"
#include "wire/Version.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace meridal {
namespace {

struct Options {
    std::string root;
    std::string configuration;
    std::string processSource; ///< here and below empty or false: as the configuration says
    std::string traffic;
    bool readHiddenDisks = false;
    bool keepStandardError = false; ///< a development tool started us: it shows our standard error
};

bool mentionsDevelopmentTool(std::string_view argument)
{
    return lowercase(argument).find("xcode") != std::string::npos;
}

/// The options, or the status to exit with.
std::variant<Options, int> parseArguments(int argc, char** argv)
{
    Options options;
    CLI::App app("The system-monitoring daemon. Serves local clients until SIGTERM.", "meridald");
    app.add_option("--root", options.root, "Keep databases, logs and the socket under this folder")->type_name("DIR");
    app.add_option("--config", options.configuration,
           "Read this file instead of /etc/meridal/meridald.conf and meridald.conf.d/*.conf beside it")
        ->type_name("FILE");
    app.add_option("--process-source", options.processSource,
           "How to read the process table where there are several ways (Linux): auto, bpf or proc. What does not work "
           "here gives way to proc")
        ->check(CLI::IsMember({"auto", "bpf", "proc"}));
    app.add_option("--traffic-source", options.traffic,
           "How to count network traffic by process: bpf, pcap, sockets, or auto, the first of these that works here")
        ->check(CLI::IsMember({"auto", "bpf", "pcap", "sockets"}));
    app.add_flag("--read-hidden-disks", options.readHiddenDisks,
        "Read the health of disks that spin even where their adapter does not tell whether they sleep, which may wake "
        "them "
        "(Linux)");
    app.set_version_flag("--version", versionText("meridald"));
    app.allow_extras();
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error);
    }
    for (int i = 0; i < argc; ++i) {
        options.keepStandardError = options.keepStandardError || mentionsDevelopmentTool(argv[i]);
    }
    for (const std::string& extra : app.remaining()) {
        if (!mentionsDevelopmentTool(extra)) {
            fmt::print(stderr, "meridald: I do not know what to do with \"{}\"; see --help\n", extra);
            return EXIT_FAILURE;
        }
    }
    return options;
}

/// Says what keeps us from starting, for who started us.
void complain(std::string_view what, bool toJournal)
{
    fmt::print(stderr, "{}{}\n", toJournal ? "<3>" : "meridald: ", what);
}

/// Standard error goes on in a file, which starts over once it has grown past 3 MiB. Left alone when that fails.
void redirectStandardError(const std::filesystem::path& file)
{
    constexpr std::uintmax_t largest = 3 * 1024 * 1024;
    std::error_code failure;
    std::filesystem::create_directories(file.parent_path(), failure);
    const auto size = std::filesystem::file_size(file, failure);
    if (!failure && size > largest) {
        std::filesystem::remove(file, failure);
    }
    // Tried on a stream of its own first: freopen closes standard error even when it cannot open the file.
    if (std::FILE* attempt = std::fopen(file.c_str(), "a+")) {
        std::fclose(attempt);
        if (std::freopen(file.c_str(), "a+", stderr)) {
            std::setvbuf(stderr, nullptr, _IOLBF, 0);
        }
    }
}

/// When free memory is returned, s: once the start is over, as often as batches of rows are written, and soon after each.
constexpr TimerSchedule tidyTimes{.first = 5, .interval = HistoryRecorder::commitInterval, .leeway = 2, .onGrid = true};
/// And code, s: once, when the start is over. Later it would take somebody's breakpoints and probes away.
constexpr TimerSchedule releaseTimes{.first = 5, .interval = 0, .leeway = 2, .onGrid = true};

void logLimitations(Context& context)
{
    Limitations& limitations = *context.host.limitations;
    std::string missing;
    std::string absent;
    const auto later = [&log = context.log](const std::string& what, const std::string& why) {
        log.warning(fmt::format("Not to be had now: {}: {}", what, why));
    };
    for (const auto& [what, why] : limitations.listen(later)) {
        std::string& text = limitations.isAbsent(what) ? absent : missing;
        text += fmt::format("{}{}: {}", text.empty() ? "" : "; ", what, why);
    }
    if (!missing.empty()) {
        context.log.warning("Not to be had here: " + missing);
    }
    if (!absent.empty()) {
        context.log.info("Not on this machine: " + absent);
    }
}

ListenerStatistics sumOf(const std::vector<std::unique_ptr<Listener>>& listeners)
{
    ListenerStatistics sum;
    for (const auto& listener : listeners) {
        const ListenerStatistics one = listener->statistics();
        sum.openConnections += one.openConnections;
        sum.acceptedConnections += one.acceptedConnections;
        sum.requests += one.requests;
        sum.badRequests += one.badRequests;
        sum.envelopesSent += one.envelopesSent;
        sum.envelopesDropped += one.envelopesDropped;
    }
    return sum;
}

/// Lets administrators read a folder of ours and what lies in it from before; what is made in it later follows its group.
void shareFolder(Context& context, const std::filesystem::path& folder)
{
    std::error_code failure;
    std::filesystem::create_directories(folder, failure);
    auto shared = context.host.userRights->shareWithReaders(folder);
    for (std::filesystem::directory_iterator entry(folder, failure), end; shared && !failure && entry != end;
         entry.increment(failure)) {
        if (entry->is_regular_file(failure) && !entry->is_symlink(failure)) {
            shared = context.host.userRights->shareWithReaders(entry->path());
        }
    }
    if (!shared) {
        context.log.warning(
            fmt::format("{}: administrators cannot be given the files: {}", folder.string(), shared.error().message));
    }
}

/// Serves until a signal has ended the main loop.
int serve(Context& context, const Options& options, ConfigurationFiles& files)
{
    Runtime& runtime = context.runtime;
    UptimeService uptime(context, UptimeStatCollectorMac::sharedUptimeCollector(), *context.databases);
    HistoryCatalogue catalogue;
    SensorService sensors(context, catalogue, SensorsStatCollectorMac::sharedSensorCollector);
    BatteryService battery(
        context, BatteryStatCollectorMac::sharedBatteryCollector(), ZAVPowerManager::sharedPowerManager());
    DiskService disks(SMARTStatCollector::sharedSMARTCollector());
    NetworkService network(context, NetworkStatCollectorMac::sharedNetworkCollector());
    MachineService machine(context);
    TrafficService traffic(context,
        {TrafficCounterCollector::sharedTrafficCounterCollector(), PacketStatCollector::sharedPacketCollector(),
            NetworkStatisticsStatCollector::sharedNetworkStatisticsStatCollector()},
        trafficSourceFrom(options.traffic.empty() ? files.current().trafficSource : options.traffic));
    traffic.setMayCapture(files.current().capture || options.traffic == "pcap");
    ApplicationService applications(context, ProcessStatCollector::sharedProcesses(), traffic);
    ProcessTableService processTable(context, ProcessStatCollector::sharedProcesses(), traffic);
    const Services services{uptime, sensors, battery, disks, network, machine, traffic, applications, processTable};
    ConfigurationService configuration(context, files, services);
    configuration.apply();
    MeridalDaemon daemon(
        context, ProcessStatCollector::sharedProcesses(), ZAVPowerManager::sharedPowerManager(), services);
    std::vector<std::unique_ptr<Listener>> listeners;
    StatusReport status(daemon, [&listeners] { return sumOf(listeners); });
    if (const std::string_view method = context.host.processes->method(); !method.empty()) {
        status.addSection("processes", [method] { return Dictionary{{"source", method}}; });
    }
    status.addSection("capture", [&traffic] { return traffic.describe(); });
    status.addSection("configuration", [&configuration] { return configuration.describe(); });
    MeridalHistory history(runtime.mainQueue());
    status.addTo(history);
    uptime.addTo(history);
    disks.addTo(history, catalogue);
    machine.addTo(history, catalogue);
    addMachineDescription(history, context, PlatformController::sharedPlatformController());
    Watches watches(runtime, history);
    machine.addTo(watches);
    applications.addTo(
        history, watches, [&daemon] { daemon.updateProcesses(); },
        [&daemon](const Peer& peer) { return daemon.viewerOf(peer); });
    processTable.addTo(history, watches,
        {.pass = [&daemon] { daemon.updateProcesses(); },
            .viewerOf = [&daemon](const Peer& peer) { return daemon.viewerOf(peer); },
            .viewOf = [&daemon](const auto& viewer, bool grouped) { return daemon.viewOf(viewer, grouped); }});
    ApplicationHistory applicationHistory(context, applications.recorder(), daemon.views());
    applicationHistory.addTo(history);
    HistoryQuestions historyQuestions(catalogue);
    historyQuestions.addTo(history);
    MomentService moments(context,
        {catalogue, uptime, BatteryStatCollectorMac::sharedBatteryCollector(),
            NetworkStatCollectorMac::sharedNetworkCollector()});
    moments.setApplications([&applications](double time, MomentService::Viewer viewer,
                                auto reply) { applications.recorder().readMoment(time, viewer, std::move(reply)); },
        [&daemon](const Peer& peer) { return daemon.viewerOf(peer); });
    moments.addTo(history);
    sensors.addTo(history);
    battery.addTo(history, catalogue);
    network.addTo(history);

    const auto inherited = inheritedSocket();
    auto socket = inherited
        ? UnixSocketListener::adopt(*inherited, daemon.server(), &history, runtime.mainQueue())
        : UnixSocketListener::listen(context.paths.socket(), daemon.server(), &history, runtime.mainQueue());
    if (!socket) {
        context.log.error(socket.error().message);
        if (!context.log.hasJournal()) {
            complain(socket.error().message, false);
        }
        return EXIT_FAILURE;
    }
    listeners.push_back(std::move(*socket));
    for (auto& listener : makeNativeListeners(context, daemon.server())) {
        listeners.push_back(std::move(listener));
    }
    logLimitations(context);

    const Task end = [&] {
        notifyStopping();
        for (const auto& listener : listeners) {
            listener->stopAccepting();
        }
        daemon.finalize();
        runtime.stop();
    };
    const auto onTerminate = runtime.watchSignal(SIGTERM, end);
    const auto onInterrupt = runtime.watchSignal(SIGINT, end);
    const auto onHangup = runtime.watchSignal(SIGHUP, [&configuration] { configuration.reload(); });
    const auto limit = watchdogLimit();
    const auto watchdog = limit ? startWatchdog(runtime, *limit, notifyAlive) : nullptr;
    const auto tidying = runtime.startTimer(runtime.mainQueue(), tidyTimes, returnFreeMemory);
    const auto releasing = runtime.startTimer(runtime.mainQueue(), releaseTimes, releaseCode);
    releaseCode();
    notifyReady();
    runtime.run();
    context.host.limitations->listen({});
    listeners.clear(); // no client may ask a daemon that is being taken apart
    SensorsStatCollectorMac::cleanupShared();
    context.log.flush();
    return EXIT_SUCCESS;
}

/// The command line wins.
HostChoices hostChoices(const Options& options, const Configuration& configuration)
{
    return {.processSource = options.processSource.empty() ? configuration.processSource : options.processSource,
        .readHiddenDisks = options.readHiddenDisks || configuration.readHiddenDisks};
}

int runDaemon(const Options& options)
{
    const Paths paths =
        options.root.empty() ? defaultPaths() : Paths::underRoot(std::filesystem::absolute(options.root));
    const auto lock = InstanceLock::acquire(paths.instanceLock());
    const bool toJournal = logsToJournal();
    if (!lock) {
        complain(lock.error().message, toJournal);
        return EXIT_FAILURE;
    }
    const ConfigurationPlace place{.folder = paths.configuration,
        .file = options.configuration.empty() ? "" : std::filesystem::absolute(options.configuration)};
    ConfigurationFiles configuration(place);
    if (!toJournal) {                                                          // which gets them with the log
        for (const ConfigurationWarning& warning : configuration.warnings()) { // while there is somebody who reads it
            complain(lineOf(warning), false);
        }
        if (!options.keepStandardError) {
            redirectStandardError(paths.errorLog());
        }
    }
    reportCrashes(toJournal);
    releaseCode();
    raiseDescriptorLimit();
    shareAllocator();
    const auto runtime = makeRuntime();
    const auto host = makeHost(*runtime, hostChoices(options, configuration.current()));
    releaseCode(); // here and later: what one step of the start needed the next does not
    NotificationCenter notifications;
    Log log;
    if (toJournal) {
        log.addJournal(*runtime, stderr);
    }
    Context context{*runtime, *host, notifications, log, paths};
    Context::setShared(context);
    shareFolder(context, paths.support);
    shareFolder(context, paths.logs);
    auto& databases = HistoryDatabaseController::sharedHistoryDatabaseController();
    context.databases = &databases;
    const int status = serve(context, options, configuration);
    databases.closeAll(); // while there are still queues to close them on
    return status;
}

} // namespace
} // namespace meridal

int main(int argc, char** argv)
{
    const auto options = meridal::parseArguments(argc, argv);
    if (const int* status = std::get_if<int>(&options)) {
        return *status;
    }
    return meridal::runDaemon(std::get<meridal::Options>(options));
}
