// SPDX-License-Identifier: Apache-2.0
#include "client/commands/CommandLine.h"

#include "base/Installation.h"
#include "base/Text.h"
#include "client/check/CheckReport.h"
#include "client/commands/Commands.h"
#include "client/commands/Help.h"
#include "client/commands/ScreenCommand.h"
#include "client/screen/Terminal.h"
#include "wire/Version.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <iostream>
#include <sstream>
#include <string_view>
#include <utility>
#include <vector>

namespace meridal {

namespace {

constexpr int mostRepetitions = 1'000'000'000;

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

/// The words after the program's name, those after "call" and moments shielded, in reverse order as CLI11 wants them.
std::vector<std::string> reversedWords(int count, const char* const* argv)
{
    std::vector<std::string> words;
    bool isAfterCall = false;
    bool takesMoment = false; // "-2h" is one
    bool isAfterDashes = false;
    for (int i = 1; i < count; ++i) {
        const std::string_view word = argv[i];
        if (isAfterCall && !isAfterDashes && word == "--") {
            isAfterDashes = true;
            continue;
        }
        const bool isHidden = (isAfterCall || takesMoment) && needsShield(word, isAfterDashes);
        words.push_back((isHidden ? " " : "") + std::string(word));
        isAfterCall = isAfterCall || word == "call";
        takesMoment = takesMoment || word == "at" || word == "why";
    }
    std::reverse(words.begin(), words.end());
    return words;
}

constexpr const char* commandGroup = "Commands";

void addGlobals(CLI::App& app, CommandLine& line)
{
    app.add_option("--socket", line.socketPath, "The daemon's socket")
        ->envname("MERIDAL_SOCKET")
        ->type_name("PATH")
        ->default_str(installation().paths.socket().string());
    Syntax globals(app);
    globals.choice(
        "--color", line.colour, {"auto", "always", "never"}, "Whether to colour text; auto respects NO_COLOR");
    globals.seconds("--timeout", line.timeout, 0.001, 3600, "Seconds to wait for an answer");
    app.set_version_flag("--version", versionText("meridalctl"));
    app.require_subcommand(0, 1);
    app.fallthrough();
    app.footer("Exit status: 0 done, 1 the daemon refused, 2 no daemon, 64 wrong usage;\n"
               "of check: 0 fine, 1 warning, 2 critical, 3 unknown.\n"
               "meridalctl help COMMAND tells more.");
}

CLI::App* addHelp(CLI::App& app, std::vector<std::string>& topics)
{
    CLI::App* help = app.add_subcommand("help", "What can be typed, in all or for one command")->group(commandGroup);
    help->add_option("command", topics, "Of this one")->expected(0, 1);
    return help;
}

/// CLI11's message repeats what was typed, so it goes through the same filter as all other data.
void printLines(std::ostream& stream, const std::string& text)
{
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        stream << printable(line) << '\n';
    }
}

/// "help" and "help COMMAND".
int printHelp(const CLI::App& app, const std::vector<std::string>& topics)
{
    const std::string text = topics.empty() ? helpOf(app) : helpOf(app, topics.front());
    printLines(std::cout, text);
    if (text.empty()) {
        printLines(std::cerr, unknownCommandComplaint(app, topics.front()));
    }
    return text.empty() ? exitStatus::usage : exitStatus::success;
}

/// Says what is wrong, or prints the help that was asked for.
int endOfParsing(const CLI::App& app, const CLI::ParseError& error, bool isForPlugin)
{
    std::ostringstream out;
    std::ostringstream complaint;
    const int status = app.exit(error, out, complaint);
    printLines(std::cout, out.str());
    if (status == 0) {
        return exitStatus::success;
    }
    const std::string word = wordInsteadOfCommand(app);
    const std::string words = word.empty() ? complaint.str() : unknownCommandComplaint(app, word);
    if (isForPlugin) {
        printLines(std::cout, "MERIDAL UNKNOWN - " + words);
        return exitStatusOf(CheckState::Unknown);
    }
    printLines(std::cerr, words);
    return exitStatus::usage;
}

/// Whether what was typed is meant for a monitoring plugin, which takes every end for a state of the machine.
bool isCheck(int count, const char* const* argv)
{
    return std::any_of(argv + std::min(count, 1), argv + count,
        [](const char* word) { return word == std::string_view("check") || word == std::string_view("--check"); });
}

} // namespace

void Syntax::examples(const std::string& text) { command_.footer(text); }

void Syntax::hide() { command_.group(""); }

void Syntax::flag(const std::string& name, bool& isGiven, const std::string& what)
{
    command_.add_flag(name, isGiven, what);
}

void Syntax::count(const std::string& names, std::size_t& count, const std::string& what)
{
    auto* option = command_.add_option(names, count, what)->check(CLI::Range(1, mostRepetitions))->type_name("N");
    if (count > 0) {
        option->default_str(std::to_string(count));
    }
}

void Syntax::countOrNone(const std::string& name, std::size_t& count, std::size_t most, const std::string& what)
{
    auto* option = command_.add_option(name, count, what)->check(CLI::Range(std::size_t{0}, most))->type_name("N");
    option->default_str(std::to_string(count));
}

void Syntax::days(double& days, const std::string& what)
{
    command_.add_option("--days", days, what)->check(CLI::Range(0.001, 1e6))->type_name("DAYS");
}

void Syntax::seconds(const std::string& name, double& seconds, double least, double most, const std::string& what)
{
    auto* option = command_.add_option(name, seconds, what)->check(CLI::Range(least, most))->type_name("S");
    option->default_str(fmt::format("{}", seconds));
}

void Syntax::text(const std::string& name, std::string& text, const std::string& type, const std::string& what)
{
    command_.add_option(name, text, what)->type_name(type);
}

void Syntax::choice(
    const std::string& name, std::string& word, const std::vector<std::string>& words, const std::string& what)
{
    command_.add_option(name, word, what)->check(CLI::IsMember(words))->type_name("")->default_str(word);
}

void Syntax::word(const std::string& name, std::string& word, const std::string& what)
{
    command_.add_option(name, word, what)->required();
}

void Syntax::numbers(const std::string& name, std::vector<std::int64_t>& numbers, const std::string& what)
{
    command_.add_option(name, numbers, what)->required();
}

void Syntax::anyNumbers(const std::string& name, std::vector<std::int64_t>& numbers, const std::string& what)
{
    command_.add_option(name, numbers, what);
}

void Syntax::words(const std::string& name, std::vector<std::string>& words, const std::string& what,
    std::string (*complaint)(const std::string& word))
{
    command_.add_option(name, words, what)->required()->check(complaint, "");
}

void Syntax::anyWords(const std::string& name, std::vector<std::string>& words, const std::string& what)
{
    command_.add_option(name, words, what);
}

void Syntax::anyChoices(const std::string& name, std::vector<std::string>& words,
    const std::vector<std::string>& choices, const std::string& what)
{
    command_.add_option(name, words, what)->check(CLI::IsMember(choices))->type_name("");
}

void Syntax::rawWords(const std::string& name, std::vector<std::string>& words, const std::string& what)
{
    // What CLI11 makes of braces and brackets is not what JSON makes of them.
    const auto take = [&words](const std::vector<std::string>& typed) {
        for (const std::string& word : typed) {
            words.push_back(isShielded(word) ? word.substr(1) : word);
        }
        return true;
    };
    command_.add_option(name, take, what)
        ->expected(0, CLI::detail::expected_max_vector_size)
        ->allow_extra_args()
        ->type_name("JSON");
}

void Syntax::moment(const std::string& name, std::vector<std::string>& words, const std::string& what)
{
    command_.add_option(name, words, what)->required()->type_name("TIME");
}

void Syntax::exclude(const std::string& name, const std::string& other)
{
    command_.get_option(name)->excludes(command_.get_option(other));
}

void Syntax::need(const std::string& name, const std::string& other)
{
    command_.get_option(name)->needs(command_.get_option(other));
}

Syntax Grammar::add(const std::string& name, const std::string& description, Command command)
{
    CLI::App* added = app_.add_subcommand(name, description)->group(commandGroup);
    added->callback([this, command = std::move(command)] { chosen_ = command; });
    return Syntax(*added);
}

std::variant<CommandLine, int> parseCommandLine(int count, const char* const* argv)
{
    CommandLine line;
    line.socketPath = installation().paths.socket();
    CLI::App app("The command line of meridald, the system monitor's daemon.", "meridalctl");
    arrangeHelp(app);
    addGlobals(app, line);
    Grammar grammar(app, line.command);
    for (const auto add : {addScreen, addTop, addProcesses, addQuestions, addUptime, addSensors, addHistory, addBattery,
             addDisks, addNetwork, addBandwidth, addApplications, addAt, addWhy, addCall, addWatch, addMetrics,
             addCheck, addBar, addReport, addComplete}) {
        add(grammar);
    }
    std::vector<std::string> topics;
    const CLI::App* help = addHelp(app, topics);
    try {
        app.parse(reversedWords(count, argv));
    } catch (const CLI::ParseError& error) {
        return endOfParsing(app, error, isCheck(count, argv));
    }
    if (help->parsed()) {
        return printHelp(app, topics);
    }
    if (!line.command) { // none was typed
        if (!outputIsTerminal() || !inputIsTerminal()) {
            return printHelp(app, {});
        }
        line.command = [help = helpOf(app)](Session& session) { return openScreen(session, help); };
    }
    return line;
}

} // namespace meridal
