// SPDX-License-Identifier: Apache-2.0
#include "client/commands/CommandLine.h"

#include "base/Text.h"
#include "client/commands/Commands.h"
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

constexpr const char* defaultSocket = "/run/meridal/daemon.sock";

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

void addGlobals(CLI::App& app, CommandLine& line)
{
    app.add_option("--socket", line.socketPath, "The daemon's socket")
        ->envname("MERIDAL_SOCKET")
        ->type_name("PATH")
        ->default_str(defaultSocket);
    Syntax globals(app);
    globals.choice(
        "--color", line.colour, {"auto", "always", "never"}, "Whether to colour text; auto respects NO_COLOR");
    globals.seconds("--timeout", line.timeout, 0.001, 3600, "Seconds to wait for an answer");
    app.set_version_flag("--version", versionText("meridalctl"));
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

void Syntax::examples(const std::string& text) { command_.footer(text); }

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

void Syntax::words(const std::string& name, std::vector<std::string>& words, const std::string& what,
    std::string (*complaint)(const std::string& word))
{
    command_.add_option(name, words, what)->required()->check(complaint, "");
}

void Syntax::anyWords(const std::string& name, std::vector<std::string>& words, const std::string& what)
{
    command_.add_option(name, words, what);
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
    CLI::App* added = app_.add_subcommand(name, description);
    added->callback([this, command = std::move(command)] { chosen_ = command; });
    return Syntax(*added);
}

std::variant<CommandLine, int> parseCommandLine(int count, const char* const* argv)
{
    CommandLine line;
    line.socketPath = defaultSocket;
    CLI::App app("The command line of meridald, the system monitor's daemon.", "meridalctl");
    addGlobals(app, line);
    Grammar grammar(app, line.command);
    for (const auto add : {addTop, addQuestions, addUptime, addSensors, addHistory, addBattery, addDisks, addNetwork,
             addBandwidth, addApplications, addAt, addWhy, addCall, addWatch}) {
        add(grammar);
    }
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
    return line;
}

} // namespace meridal
