// SPDX-License-Identifier: Apache-2.0
#include "client/commands/Commands.h"
#include "client/screen/Format.h"
#include "client/screen/Moments.h"
#include "client/screen/Terminal.h"
#include "client/screen/WallClock.h"
#include "client/views/Answers.h"
#include "client/views/AtView.h"
#include "wire/Methods.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace meridal {

namespace {

constexpr const char* atExamples =
    R"(Times without a zone are local; which one is shown. Of a time that a change of the
clocks shows twice it is the first.

Examples:
  meridalctl at "Tue 03:00"
  meridalctl at yesterday 18:30
  meridalctl at -2h
  meridalctl at 2026-11-20T18:30+01:00 --json
)";

struct AtOptions {
    std::vector<std::string> words; ///< of the time
    bool json = false;
};

int runAt(Session& session, const AtOptions& options)
{
    const std::string words = fmt::format("{}", fmt::join(options.words, " "));
    const double now = wallTime();
    const auto time = momentFrom(words, now);
    if (!time) {
        session.fail(exitStatus::usage, momentComplaint(words));
        return exitStatus::usage;
    }
    return session.run([&] {
        session.call(method::momentsAt, Value::array({{{"time", *time}}}), [&](const Value& answer) {
            options.json ? session.conclude(answerLine(answer))
                         : session.conclude(atLines(answer, now, terminalColumns().value_or(0)));
        });
    });
}

} // namespace

void addAt(Grammar& grammar)
{
    auto [at, options] =
        grammar.add("at", "What was at a moment: one page of everything that is recorded of it", runAt);
    at.examples(atExamples);
    at.moment("time", options.words, "When");
    at.flag("--json", options.json, "As JSON");
}

} // namespace meridal
