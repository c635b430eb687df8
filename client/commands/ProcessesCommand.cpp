// SPDX-License-Identifier: Apache-2.0
#include "base/Text.h"
#include "client/commands/Commands.h"
#include "client/commands/RepeatedView.h"
#include "client/commands/Rows.h"
#include "client/screen/Format.h"
#include "client/screen/Terminal.h"
#include "client/screen/TextTable.h"
#include "client/views/Answers.h"
#include "client/views/ProcessView.h"
#include "client/views/ProcessesView.h"
#include "wire/Methods.h"

#include <fmt/format.h>

#include <set>
#include <vector>

namespace meridal {

namespace {

constexpr const char* processesExamples =
    R"(With process ids, the names of those. Without, all processes: sorted, filtered and cut by the
daemon. Memory is what a process costs; CPU is in percent of one core. A filter is part of a
name or of a command line, or with --regex a pattern.

Examples:
  meridalctl processes --sort memory --limit 10
  meridalctl processes --filter python --columns pid,user,cpu,read,written,command
  meridalctl processes --regex --filter '^/usr/(s)?bin/' --user root
  meridalctl processes --grouped --sort energy
  meridalctl processes --json | jq '.processes[] | select(.threads > 100) | .name'
)";

constexpr const char* processExamples =
    R"(The working folder, the program's path, descriptors and connections are told of one's own
processes, and to root. What is drawn is the last minute, as far as it was asked about.

Examples:
  meridalctl process 1
  meridalctl process 4711 --watch
  meridalctl process 4711 --json | jq '.connections[] | {host, received}'
)";

struct ProcessOptions {
    std::vector<std::int64_t> pids;
    bool watch = false;
    std::size_t refreshes = 0; ///< with it, stop after so many; 0: never
    bool json = false;
};

struct ProcessesOptions {
    std::vector<std::int64_t> pids;
    std::string sort = "cpu";
    bool reversed = false;
    std::string filter;
    bool regex = false;
    std::string user;
    std::string columns;
    std::size_t limit = 0; ///< 0: as many as fit, or 50
    bool grouped = false;
    RowsForm form;
};

constexpr std::size_t usualProcesses = 50;
constexpr std::size_t mostProcesses = 1000;

/// The names that the daemon found, and a complaint about the pids that it does not know.
void printNames(Session& session, const ProcessesOptions& options, const Value& found)
{
    TextTable table({{"PID", 8, Align::Right, 2}, {"NAME"}});
    std::set<std::int64_t> known;
    for (const Value& process : found.is_array() ? found : Value::array()) {
        if (const auto pid = integer(process, "pid")) {
            known.insert(*pid);
            table.add({std::to_string(*pid), printable(text(process, "name").value_or("?"))});
        }
    }
    if (!(options.form.json ? session.print(jsonLine(found)) : session.print(table.lines(Style::Plain)))) {
        return;
    }
    std::string unknown;
    for (const std::int64_t pid : options.pids) {
        unknown += known.count(pid) ? "" : fmt::format("{}{}", unknown.empty() ? "" : ", ", pid);
    }
    if (unknown.empty()) {
        session.finish(exitStatus::success);
    } else {
        session.fail(exitStatus::refused, "the daemon knows no process " + unknown);
    }
}

/// The daemon's names of the columns to show, in order; what is no column is left in `unknown`.
std::vector<std::string> columnsOf(const ProcessesOptions& options, std::string& unknown)
{
    if (options.columns.empty()) {
        return options.grouped
            ? std::vector<std::string>{"processes", "user", "cpu", "footprint", "threads", "diskRead", "diskWritten",
                "name"}
            : std::vector<std::string>{"pid", "user", "cpu", "footprint", "threads", "state", "command"};
    }
    std::vector<std::string> columns;
    for (std::size_t begin = 0; begin <= options.columns.size();) {
        const std::size_t end = std::min(options.columns.find(',', begin), options.columns.size());
        const std::string word = options.columns.substr(begin, end - begin);
        const char* column = columnOfProcesses(word);
        column ? columns.emplace_back(column) : unknown = word;
        begin = end + 1;
    }
    return columns;
}

Value questionOf(const ProcessesOptions& options, std::vector<std::string> columns)
{
    Value filter = Value::object();
    if (!options.filter.empty()) {
        filter["text"] = options.filter;
        filter["regex"] = options.regex;
    }
    if (!options.user.empty()) {
        filter["user"] = options.user;
    }
    columns.emplace_back("name"); // in place of a command line that there is not
    return {{"columns", std::move(columns)}, {"sort", columnOfProcesses(options.sort)}, {"reversed", options.reversed},
        {"filter", std::move(filter)}, {"grouped", options.grouped},
        {"limit", std::min(options.limit > 0 ? options.limit : usualProcesses, mostProcesses)}};
}

void printTable(
    Session& session, const ProcessesOptions& options, const std::vector<std::string>& columns, const Value& answer)
{
    std::vector<const char*> names;
    for (const std::string& column : columns) {
        names.push_back(column.c_str());
    }
    concludeRows(session, options.form,
        {answer, "processes", names, [&](int room) { return processLines(answer, columns, room); }});
}

int runTable(Session& session, const ProcessesOptions& options)
{
    std::string unknown;
    const std::vector<std::string> columns = columnsOf(options, unknown);
    if (!unknown.empty() || columns.empty()) {
        std::string known;
        for (const ProcessWord& each : processWords()) {
            known += (known.empty() ? "" : ", ") + std::string(each.word);
        }
        session.fail(exitStatus::usage, fmt::format("there is no column \"{}\" but {}", printable(unknown), known));
        return exitStatus::usage;
    }
    return session.run([&] {
        session.call(method::processesTable, questionOf(options, columns),
            [&](const Value& answer) { printTable(session, options, columns, answer); });
    });
}

int runProcesses(Session& session, const ProcessesOptions& options)
{
    if (options.pids.empty()) {
        return runTable(session, options);
    }
    return session.run([&] {
        session.call(method::infoForPids, Value::array({options.pids}),
            [&](const Value& found) { printNames(session, options, found); });
    });
}

int runProcess(Session& session, const ProcessOptions& options)
{
    if (options.pids.size() != 1) {
        session.fail(exitStatus::usage, "one process at a time");
        return exitStatus::usage;
    }
    const Value question = {{"pid", options.pids.front()}};
    if (options.watch) {
        RepeatedView view(session,
            {.ask = [&](auto use) { session.call(method::processDetails, question, std::move(use)); },
                .list = "course",
                .lines = processDetailLines,
                .json = options.json,
                .refreshes = options.refreshes});
        return session.runUntilInterrupted([&view] { view.start(); });
    }
    return session.run([&] {
        session.call(method::processDetails, question, [&](const Value& answer) {
            options.json ? session.conclude(answerLine(answer))
                         : session.conclude(processDetailLines(answer, terminalColumns().value_or(0)));
        });
    });
}

std::vector<std::string> sortWords()
{
    std::vector<std::string> sorts;
    for (const ProcessWord& each : processWords()) {
        sorts.emplace_back(each.word);
    }
    return sorts;
}

} // namespace

void addProcesses(Grammar& grammar)
{
    auto [processes, options] = grammar.add(
        "processes", "All processes, sorted and filtered; or the names of some, by their ids", runProcesses);
    processes.examples(processesExamples);
    processes.anyNumbers("pid", options.pids, "Process ids");
    processes.choice("--sort", options.sort, sortWords(), "By this column, the largest first");
    processes.flag("--reversed", options.reversed, "The smallest first, or Z before A");
    processes.text("--filter", options.filter, "TEXT", "Those with this in their name or command line");
    processes.flag("--regex", options.regex, "The filter is a regular expression");
    processes.need("--regex", "--filter");
    processes.text("--user", options.user, "USER", "Those of this user, by name or number");
    processes.text("--columns", options.columns, "A,B,...", "Columns to show, by the words of --sort");
    processes.count("--limit", options.limit, "Show so many, 50 as a rule and 1000 at most");
    processes.flag("--grouped", options.grouped, "A line for each application with the sums of all its processes");
    addRowsOptions(processes, options.form);
    for (const char* const option :
        {"--reversed", "--filter", "--user", "--columns", "--limit", "--grouped", "--csv"}) {
        processes.exclude(option, "pid");
    }

    auto [process, one] = grammar.add("process", "Everything that is known of one process", runProcess);
    process.examples(processExamples);
    process.numbers("pid", one.pids, "Process id");
    process.flag("--watch", one.watch, "Show it again every 2 seconds, until interrupted");
    process.count("--refreshes", one.refreshes, "With --watch, stop after so many, as text");
    process.need("--refreshes", "--watch");
    process.flag("--json", one.json, "As JSON");
}

} // namespace meridal
