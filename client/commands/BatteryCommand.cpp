// SPDX-License-Identifier: Apache-2.0
#include "client/commands/Commands.h"
#include "client/commands/Pages.h"
#include "client/commands/Pictures.h"
#include "client/screen/Format.h"
#include "client/screen/Terminal.h"
#include "client/screen/WallClock.h"
#include "client/views/Answers.h"
#include "client/views/BatteryView.h"
#include "wire/Methods.h"

#include <array>
#include <utility>

namespace meridal {

namespace {

constexpr const char* batteryExamples = R"(Examples:
  meridalctl battery
  meridalctl battery --history --days 365
  meridalctl battery --sleeps --worst -n 5
  meridalctl battery --svg battery.svg
)";

constexpr int chartColumns = 80;
constexpr std::array<const char*, 2> recordedFigures = {"health", "cycles"};

struct BatteryOptions {
    bool history = false; ///< also how the figures changed
    bool sleeps = false;  ///< also what sleeps have cost
    bool worst = false;   ///< those first that cost most
    std::size_t rows = 20;
    double days = 0;     ///< how far back; 0: all that is known
    std::string svgPath; ///< empty: no picture of the history; "-": standard output
    bool json = false;
};

/// Asks for the state, then for each figure's history, then for sleeps.
class BatteryQuery {
public:
    BatteryQuery(Session& session, const BatteryOptions& options) : session_(session), options_(options) { }

    void ask()
    {
        session_.call(method::batteryState, Value::array(), [this](const Value& state) {
            const Value* batteries = find(state, "batteries");
            if (!batteries || !batteries->is_array()) {
                return session_.fail(
                    exitStatus::refused, "the daemon's answer tells no batteries: " + terminalJson(state));
            }
            state_ = state;
            options_.history || !options_.svgPath.empty() ? askHistory(0) : askSleeps();
        });
    }

private:
    void askHistory(std::size_t index)
    {
        if (index == recordedFigures.size()) {
            return askSleeps();
        }
        PagedQuestion question{.method = method::batteryHistory, .list = "rows", .cursor = "before", .entry = "row"};
        question.parameters["figure"] = recordedFigures.at(index);
        question.wanted = options_.rows;
        if (options_.days > 0) {
            question.parameters["from"] = wallTime() - options_.days * day;
        }
        askPages(session_, std::move(question), [this, index](Value rows, const Value&) {
            state_["history"][recordedFigures.at(index)] = std::move(rows);
            askHistory(index + 1);
        });
    }

    void askSleeps()
    {
        if (!options_.sleeps && !options_.worst) {
            return report();
        }
        PagedQuestion question{.method = method::batterySleeps, .list = "sleeps", .entry = "row"};
        question.parameters["worst"] = options_.worst;
        question.wanted = options_.rows;
        if (options_.days > 0) {
            question.parameters["from"] = wallTime() - options_.days * day;
        }
        askPages(session_, std::move(question), [this](Value sleeps, const Value&) {
            state_["sleeps"] = std::move(sleeps);
            report();
        });
    }

    void report()
    {
        if (!options_.svgPath.empty()) {
            return concludePlots(
                session_, batteryPlots(state_, number(state_, "wallTime").value_or(wallTime())), options_.svgPath);
        }
        options_.json ? session_.conclude(answerLine(state_))
                      : session_.conclude(batteryLines(state_, terminalColumns().value_or(chartColumns)));
    }

    Session& session_;
    const BatteryOptions& options_;
    Value state_;
};

int runBattery(Session& session, const BatteryOptions& options)
{
    BatteryQuery query(session, options);
    return session.run([&query] { query.ask(); });
}

} // namespace

void addBattery(Grammar& grammar)
{
    auto [battery, options] = grammar.add("battery", "Charge, health and time left of the batteries", runBattery);
    battery.examples(batteryExamples);
    battery.flag("--history", options.history, "Also show how health and cycles changed, newest first");
    battery.flag(
        "--sleeps", options.sleeps, "Also show what the machine's sleeps took from the batteries, newest first");
    battery.flag("--worst", options.worst, "The same, those over an hour that took most an hour first");
    battery.count("-n,--rows", options.rows, "Show at most so many changes of each, or sleeps");
    battery.days(options.days, "Look back so many days only");
    battery.text("--svg", options.svgPath, "FILE", "Write the history as a picture for browsers; - is standard output");
    battery.flag("--json", options.json, "As JSON");
    battery.exclude("--svg", "--json");
}

} // namespace meridal
