#include "client/commands/Arguments.h"
#include "client/commands/BandwidthCommand.h"
#include "client/commands/BatteryCommand.h"
#include "client/commands/Commands.h"
#include "client/commands/DisksCommand.h"
#include "client/commands/HistoryCommand.h"
#include "client/commands/SensorsCommand.h"
#include "client/commands/Session.h"
#include "client/commands/TopCommand.h"
#include "client/commands/UptimeCommand.h"
#include "client/commands/WatchCommand.h"
#include "client/screen/Output.h"
#include "client/screen/Terminal.h"

#include <csignal>
#include <cstdlib>
#include <exception>
#include <string_view>
#include <variant>

namespace {

using namespace meridal;

/// https://no-color.org: set to anything but nothing.
bool environmentForbidsColour()
{
    const char* value = std::getenv("NO_COLOR");
    return value && *value != '\0';
}

int run(const Arguments& arguments)
{
    const bool onTerminal = outputIsTerminal();
    const bool coloured = arguments.colour == ColourChoice::Always
        || (arguments.colour == ColourChoice::Auto && onTerminal && !environmentForbidsColour());
    Session session(arguments, coloured);
    const auto dispatch = [&] {
        switch (arguments.command) {
        case Command::Top:
            return runTop(session, onTerminal, coloured);
        case Command::Processes:
            return runProcesses(session);
        case Command::Version:
            return runVersion(session);
        case Command::Ping:
            return runPing(session);
        case Command::Status:
            return runStatus(session);
        case Command::Uptime:
            return runUptime(session);
        case Command::Sensors:
            return runSensors(session, onTerminal, coloured);
        case Command::Fans:
            return runFans(session);
        case Command::History:
            return runHistory(session);
        case Command::Battery:
            return runBattery(session);
        case Command::Disks:
            return runDisks(session);
        case Command::Bandwidth:
            return runBandwidth(session);
        case Command::Call:
            return runCall(session);
        case Command::Watch:
            return runWatch(session);
        }
        return exitStatus::usage;
    };
    const int status = dispatch();
    if (!session.complaint().empty()) {
        complain(session.complaint());
    }
    return status;
}

} // namespace

int main(int argc, char** argv)
{
    std::signal(SIGPIPE, SIG_IGN); // a reader that leaves shows as a failed write
    try {
        const auto parsed = parseArguments(argc, argv);
        const int* status = std::get_if<int>(&parsed);
        return status ? *status : run(std::get<Arguments>(parsed));
    } catch (const std::exception& error) {
        complain(error.what());
        return exitStatus::refused;
    }
}
