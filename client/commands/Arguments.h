#pragma once

#include "client/views/TopTable.h"

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

namespace meridal {

/// How a command ended, as the shell sees it.
namespace exitStatus {
constexpr int success = 0;
constexpr int refused = 1;  ///< the daemon answered with an error, or the output could not be written
constexpr int noDaemon = 2; ///< the daemon could not be reached, or did not answer
constexpr int usage = 64;   ///< the command line makes no sense; as in sysexits
} // namespace exitStatus

enum class Command {
    Top,
    Processes,
    Version,
    Ping,
    Status,
    Uptime,
    Sensors,
    Fans,
    History,
    Battery,
    Disks,
    Bandwidth,
    Call,
    Watch
};
enum class ColourChoice { Auto, Always, Never };

/// The command line, understood and checked.
struct Arguments {
    Command command = Command::Top;
    std::string socketPath;
    ColourChoice colour = ColourChoice::Auto;
    double timeout = 5; ///< s for an answer
    bool json = false;

    TopList list = TopList::Cpu;
    bool hierarchy = false;
    std::size_t rows = 0;      ///< 0: as many as fit, 20 where there is no screen
    std::size_t refreshes = 0; ///< stop after so many; 0: never
    double settle = 0.5;       ///< s after the first list before rates are real

    bool history = false; ///< also what was before: boots, or the figures of a battery
    double days = 0;      ///< how far back; 0: all that is known

    bool watch = false;         ///< sensors again and again
    std::string sensor;         ///< whose history
    std::string range = "hour"; ///< of it, by the daemon's names of resolutions
    bool csv = false;
    std::string svgPath;             ///< empty: no picture; "-": standard output
    bool attributes = false;         ///< of disks, all that they keep
    std::string bandwidthBy = "day"; ///< hour, day, month, interface, network or station
    std::string interfaceName;       ///< empty: of all
    bool all = false;                ///< interfaces that are no hardware as well

    std::vector<std::int64_t> pids;
    std::size_t pings = 1;
    std::string method;
    std::vector<std::string> parameters; ///< of the method, as typed
    std::vector<std::int64_t> keys;
};

/// Understands the command line, or has printed help or a complaint: then the exit status.
std::variant<Arguments, int> parseArguments(int count, const char* const* argv);

} // namespace meridal
