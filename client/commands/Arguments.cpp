#include "client/commands/Arguments.h"

#include "base/Text.h"
#include "wire/RequestKey.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <optional>
#include <sstream>

namespace meridal {

namespace {

constexpr const char* defaultSocket = "/run/meridal/daemon.sock";
constexpr const char* clientVersion = "meridalctl 6.6";

constexpr const char* topExamples = R"(On a terminal the list is live; the keys are
  q       quit
  1 to 5  (or c m d n e) cpu, memory, disk, network, energy
  h       group processes under the application that is responsible for them
Elsewhere, and with --once, --refreshes or --json, it is text, one block a refresh.

Figures: CPU in percent of one core; memory in bytes; disk in bytes a second;
network in bytes since the last refresh; energy as a score that counts a wake-up
as 500 microseconds of CPU. Totals are those of the processes listed.

Examples:
  meridalctl top                      what uses the processors, live
  meridalctl top memory -n 5 --once   the five largest, as text
  meridalctl top disk --json | jq .   for programs
)";

constexpr const char* callExamples =
    R"(A parameter that is not JSON is taken as text; "--" goes before parameters that
begin with a dash and are no number. Prints the result as JSON.

Examples:
  meridalctl call version:
  meridalctl call infoForPids:reply: '[1, 2]'
  meridalctl call refreshDHCP: eth0
)";

constexpr const char* watchExamples = R"(Prints what the daemon sends, one JSON object a line, until interrupted.
Keys, by name or number: cpu 1, memory 2, disk 4, network 8, energy 16,
smart-temperatures 32, smart-status 64, battery 128.

Examples:
  meridalctl watch cpu battery
  meridalctl watch memory --count 2 | tail -n 1
)";

constexpr const char* uptimeExamples =
    R"("available" is the share of the time in which the machine was up, time asleep left
out. A boot that ended in a crash lasted at least as long as shown.

Examples:
  meridalctl uptime
  meridalctl uptime --history --days 30
)";

constexpr const char* sensorsExamples =
    R"(The bar shows where a value stands between the sensor's limits; without limits,
between the lowest and the highest value ever seen. Power is an average over at
least 2 s, for users other than root to a tenth of a watt.

Examples:
  meridalctl sensors
  meridalctl sensors --watch
  meridalctl sensors --json | jq '.sensors[] | select(.kind == "fan")'
)";

constexpr const char* historyExamples =
    R"(SENSOR is a key, a name, or words that only one of them has. Stretches in which
nothing was measured are left blank.

Examples:
  meridalctl history "Package id 0"
  meridalctl history nvme --range week
  meridalctl history TC0P --range day --svg day.svg
  meridalctl history TC0P --csv > hour.csv
)";

constexpr const char* batteryExamples = R"(Examples:
  meridalctl battery
  meridalctl battery --history --days 365
)";

constexpr const char* disksExamples =
    R"("wear" is the share of a disk's rated life that is used up. A disk that sleeps is not
woken for this; its figures are of when it was last awake.

Examples:
  meridalctl disks
  meridalctl disks --attributes
)";

constexpr const char* bandwidthExamples =
    R"(Bytes with link headers, of interfaces that are hardware; bridges, tunnels and the
loopback carry them a second time, and count with --all or by interface only. Looks
back a day by hour, 30 days by day, a year by month, else as far as there is a record.
A Wi-Fi network is all base stations of one name; by station each is told apart.

Examples:
  meridalctl bandwidth
  meridalctl bandwidth --by network --days 7
  meridalctl bandwidth --by station
  meridalctl bandwidth --by hour --interface wlan0 --svg today.svg
)";

constexpr int mostRepetitions = 1'000'000'000;

/// What is checked as text first and then becomes something else.
struct Words {
    std::string list;
    std::string colour;
    std::vector<std::string> keys;
};

/// CLI11 takes "[1,2]" apart and "-5" for an option. A space in front hides a parameter's nature from it; this tells
/// one that got the space.
bool isShielded(std::string_view word)
{
    return word.size() > 1 && word[0] == ' ' && (word[1] == '[' || word[1] == '-');
}

bool needsShield(std::string_view word, bool isAfterDashes)
{
    const bool isNegative = word.size() > 1 && word[0] == '-' && word[1] >= '0' && word[1] <= '9';
    return isNegative || (!word.empty() && (word[0] == '[' || (isAfterDashes && word[0] == '-')));
}

/// The words after the program's name, those after "call" shielded, in reverse order as CLI11 wants them.
std::vector<std::string> reversedWords(int count, const char* const* argv)
{
    std::vector<std::string> words;
    bool isAfterCall = false;
    bool isAfterDashes = false;
    for (int i = 1; i < count; ++i) {
        const std::string_view word = argv[i];
        if (isAfterCall && !isAfterDashes && word == "--") {
            isAfterDashes = true;
            continue;
        }
        const bool isHidden = isAfterCall && needsShield(word, isAfterDashes);
        words.push_back((isHidden ? " " : "") + std::string(word));
        isAfterCall = isAfterCall || word == "call";
    }
    std::reverse(words.begin(), words.end());
    return words;
}

/// The key of that name or number; nothing when it is neither.
std::optional<std::int64_t> requestKey(const std::string& word)
{
    for (const RequestKeyName& named : requestKeyNames) {
        if (named.name == word) {
            return mask(named.key);
        }
    }
    std::int64_t number = 0;
    return CLI::detail::lexical_cast(word, number) && number > 0 ? std::optional(number) : std::nullopt;
}

void addTop(CLI::App& app, Arguments& arguments, Words& words)
{
    CLI::App* top = app.add_subcommand("top", "The processes that use the most, live or as text");
    top->footer(topExamples);
    top->add_option("list", words.list, "What to rank by")
        ->check(CLI::IsMember(std::vector<std::string>{"cpu", "memory", "disk", "network", "energy"}))
        ->type_name("")
        ->default_str("cpu");
    top->add_flag("--hierarchy", arguments.hierarchy, "Group processes under the one responsible for them");
    top->add_option("-n,--rows", arguments.rows, "Show at most so many rows")
        ->check(CLI::Range(1, mostRepetitions))
        ->type_name("N");
    top->add_flag("--json", arguments.json, "One JSON object a refresh");
    auto* refreshes = top->add_option("--refreshes", arguments.refreshes, "Stop after so many, as text");
    refreshes->check(CLI::Range(1, mostRepetitions))->type_name("N");
    top->add_flag_callback(
           "--once", [&arguments] { arguments.refreshes = 1; }, "The same as --refreshes 1")
        ->excludes(refreshes);
    top->add_option("--settle", arguments.settle, "Seconds that rates need before the first refresh as text")
        ->check(CLI::Range(0.0, 60.0))
        ->type_name("S")
        ->default_str("0.5");
    top->callback([&arguments, &words] {
        arguments.command = Command::Top;
        for (const TopList list : allTopLists) {
            arguments.list = listName(list) == words.list ? list : arguments.list;
        }
    });
}

void addQuestions(CLI::App& app, Arguments& arguments)
{
    CLI::App* processes = app.add_subcommand("processes", "The names of processes, by their ids");
    processes->add_option("pid", arguments.pids, "Process ids")->required();
    processes->add_flag("--json", arguments.json, "As JSON");
    processes->callback([&arguments] { arguments.command = Command::Processes; });

    CLI::App* version = app.add_subcommand("version", "The daemon's version and build");
    version->callback([&arguments] { arguments.command = Command::Version; });

    CLI::App* ping = app.add_subcommand("ping", "How long the daemon takes to answer");
    ping->add_option("-c,--count", arguments.pings, "Ask so many times in a row")
        ->check(CLI::Range(1, mostRepetitions))
        ->type_name("N");
    ping->callback([&arguments] { arguments.command = Command::Ping; });

    CLI::App* status = app.add_subcommand("status", "What the daemon costs, and what it cannot measure here and why");
    status->add_flag("--json", arguments.json, "As JSON");
    status->callback([&arguments] { arguments.command = Command::Status; });
}

void addUptime(CLI::App& app, Arguments& arguments)
{
    CLI::App* uptime = app.add_subcommand("uptime", "How long the machine has been up, and its boots before");
    uptime->footer(uptimeExamples);
    uptime->add_flag("--history", arguments.history, "Also list the boots, newest first");
    uptime->add_option("-n,--rows", arguments.rows, "List at most so many")
        ->check(CLI::Range(1, mostRepetitions))
        ->type_name("N")
        ->default_str("20");
    uptime->add_option("--days", arguments.days, "Look back so many days only")
        ->check(CLI::Range(0.001, 1e6))
        ->type_name("DAYS");
    uptime->add_flag("--json", arguments.json, "As JSON");
    uptime->callback([&arguments] { arguments.command = Command::Uptime; });
}

void addSensors(CLI::App& app, Arguments& arguments)
{
    CLI::App* sensors = app.add_subcommand(
        "sensors", "Temperatures, voltages, currents, powers, humidities and fans, with their alarms");
    sensors->footer(sensorsExamples);
    auto* watch = sensors->add_flag("--watch", arguments.watch, "Show them again every 2 seconds, until interrupted");
    sensors->add_option("--refreshes", arguments.refreshes, "With --watch, stop after so many, as text")
        ->check(CLI::Range(1, mostRepetitions))
        ->needs(watch)
        ->type_name("N");
    sensors->add_flag("--json", arguments.json, "As JSON");
    sensors->callback([&arguments] { arguments.command = Command::Sensors; });

    CLI::App* fans = app.add_subcommand("fans", "The fans and how fast they turn");
    fans->add_flag("--json", arguments.json, "As JSON");
    fans->callback([&arguments] { arguments.command = Command::Fans; });

    CLI::App* history = app.add_subcommand("history", "What was recorded of a sensor, as a plot or as figures");
    history->footer(historyExamples);
    history->add_option("sensor", arguments.sensor, "A key, a name, or a part of one")->required();
    history->add_option("--range", arguments.range, "How far back")
        ->check(
            CLI::IsMember(std::vector<std::string>{"hour", "day", "week", "month", "threemonth", "sixmonth", "year"}))
        ->type_name("")
        ->default_str("hour");
    auto* csv = history->add_flag("--csv", arguments.csv, "The samples as comma-separated values");
    auto* json = history->add_flag("--json", arguments.json, "The samples as JSON")->excludes(csv);
    history->add_option("--svg", arguments.svgPath, "Write the plot as a picture for browsers; - is standard output")
        ->type_name("FILE")
        ->excludes(csv)
        ->excludes(json);
    history->callback([&arguments] { arguments.command = Command::History; });
}

void addBattery(CLI::App& app, Arguments& arguments)
{
    CLI::App* battery = app.add_subcommand("battery", "Charge, health and time left of the batteries");
    battery->footer(batteryExamples);
    battery->add_flag("--history", arguments.history, "Also show how health and cycles changed, newest first");
    battery->add_option("-n,--rows", arguments.rows, "Show at most so many changes of each")
        ->check(CLI::Range(1, mostRepetitions))
        ->type_name("N")
        ->default_str("20");
    battery->add_option("--days", arguments.days, "Look back so many days only")
        ->check(CLI::Range(0.001, 1e6))
        ->type_name("DAYS");
    battery->add_flag("--json", arguments.json, "As JSON");
    battery->callback([&arguments] { arguments.command = Command::Battery; });
}

void addDisks(CLI::App& app, Arguments& arguments)
{
    CLI::App* disks = app.add_subcommand("disks", "The disks, their temperature and health");
    disks->footer(disksExamples);
    disks->add_flag("--attributes", arguments.attributes, "Also list what each disk keeps of itself");
    disks->add_flag("--json", arguments.json, "As JSON");
    disks->callback([&arguments] { arguments.command = Command::Disks; });
}

void addBandwidth(CLI::App& app, Arguments& arguments)
{
    CLI::App* bandwidth = app.add_subcommand("bandwidth", "What went through the network interfaces");
    bandwidth->footer(bandwidthExamples);
    bandwidth->add_option("--by", arguments.bandwidthBy, "How to add up")
        ->check(CLI::IsMember(std::vector<std::string>{"hour", "day", "month", "interface", "network", "station"}))
        ->type_name("")
        ->default_str("day");
    bandwidth->add_option("--days", arguments.days, "Look back so many days")
        ->check(CLI::Range(0.001, 1e6))
        ->type_name("DAYS");
    bandwidth->add_option("--interface", arguments.interfaceName, "Of this interface only")->type_name("NAME");
    bandwidth->add_flag("--all", arguments.all, "Also of interfaces that are no hardware");
    bandwidth->add_option("--svg", arguments.svgPath, "Draw it into a file")->type_name("FILE");
    bandwidth->add_flag("--json", arguments.json, "As JSON");
    bandwidth->callback([&arguments] { arguments.command = Command::Bandwidth; });
}

void addWire(CLI::App& app, Arguments& arguments, Words& words)
{
    CLI::App* call = app.add_subcommand("call", "Call any method of the daemon");
    call->footer(callExamples);
    call->add_option("method", arguments.method, "The method's full name, such as version:")->required();
    // Taken raw: what CLI11 makes of braces and brackets is not what JSON makes of them.
    const auto take = [&arguments](const std::vector<std::string>& typed) {
        for (const std::string& word : typed) {
            arguments.parameters.push_back(isShielded(word) ? word.substr(1) : word);
        }
        return true;
    };
    call->add_option("parameter", take, "Its parameters, in order")
        ->expected(0, CLI::detail::expected_max_vector_size)
        ->allow_extra_args()
        ->type_name("JSON");
    call->callback([&arguments] { arguments.command = Command::Call; });

    CLI::App* watch = app.add_subcommand("watch", "Print the daemon's results as JSON lines");
    watch->footer(watchExamples);
    watch->add_option("key", words.keys, "What to watch, by name or number")->required();
    watch->add_flag("--hierarchy", arguments.hierarchy, "Group processes under the one responsible for them");
    watch->add_option("-n,--count", arguments.refreshes, "Stop after so many lines")
        ->check(CLI::Range(1, mostRepetitions))
        ->type_name("N");
    watch->callback([&arguments, &words] {
        arguments.command = Command::Watch;
        for (const std::string& key : words.keys) {
            const auto number = requestKey(key);
            if (!number) {
                throw CLI::ValidationError("key", "\"" + key + "\" is neither a key's name nor its number");
            }
            arguments.keys.push_back(*number);
        }
    });
}

void addGlobals(CLI::App& app, Arguments& arguments, Words& words)
{
    app.add_option("--socket", arguments.socketPath, "The daemon's socket")
        ->envname("MERIDAL_SOCKET")
        ->type_name("PATH")
        ->default_str(defaultSocket);
    app.add_option("--color", words.colour, "Whether to colour text; auto respects NO_COLOR")
        ->check(CLI::IsMember(std::vector<std::string>{"auto", "always", "never"}))
        ->type_name("")
        ->default_str("auto");
    app.add_option("--timeout", arguments.timeout, "Seconds to wait for an answer")
        ->check(CLI::Range(0.001, 3600.0))
        ->type_name("S")
        ->default_str("5");
    app.set_version_flag("--version", clientVersion);
    app.require_subcommand(1);
    app.fallthrough();
    app.footer("Exit status: 0 done, 1 the daemon refused, 2 no daemon, 64 wrong usage.\n"
               "meridalctl COMMAND --help tells more.");
}

/// CLI11's message repeats what was typed, so it goes through the same filter as all other data.
void printLines(std::ostream& stream, const std::string& text)
{
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        stream << printable(line) << '\n';
    }
}

} // namespace

std::variant<Arguments, int> parseArguments(int count, const char* const* argv)
{
    Arguments arguments;
    arguments.socketPath = defaultSocket;
    Words words;
    CLI::App app("The command line of meridald, the system monitor's daemon.", "meridalctl");
    addGlobals(app, arguments, words);
    addTop(app, arguments, words);
    addQuestions(app, arguments);
    addUptime(app, arguments);
    addSensors(app, arguments);
    addBattery(app, arguments);
    addDisks(app, arguments);
    addBandwidth(app, arguments);
    addWire(app, arguments, words);
    try {
        app.parse(reversedWords(count, argv));
    } catch (const CLI::ParseError& error) {
        std::ostringstream out;
        std::ostringstream complaint;
        const int status = app.exit(error, out, complaint);
        printLines(std::cout, out.str());
        printLines(std::cerr, complaint.str());
        return status == 0 ? exitStatus::success : exitStatus::usage;
    }
    arguments.colour = words.colour == "always" ? ColourChoice::Always
        : words.colour == "never"               ? ColourChoice::Never
                                                : ColourChoice::Auto;
    return arguments;
}

} // namespace meridal
