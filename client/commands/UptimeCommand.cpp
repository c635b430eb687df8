// SPDX-License-Identifier: Apache-2.0
#include "client/commands/Commands.h"
#include "client/commands/Pages.h"
#include "client/commands/Rows.h"
#include "client/screen/Format.h"
#include "client/screen/WallClock.h"
#include "client/views/UptimeView.h"
#include "wire/Methods.h"

#include <array>

namespace meridal {

namespace {

constexpr const char* uptimeExamples =
    R"("available" is the share of the time in which the machine was up, time asleep left
out. A boot that ended in a crash lasted at least as long as shown.

Examples:
  meridalctl uptime
  meridalctl uptime --history --days 30
)";

struct UptimeOptions {
    bool history = false; ///< also the boots before
    std::size_t rows = 20;
    double days = 0; ///< how far back; 0: all that is known
    RowsForm form;
};

constexpr std::array<const char*, 6> bootColumns = {"boot", "started", "shutdown", "length", "asleep", "end"};

void reportUptime(Session& session, const UptimeOptions& options, const Value& boots, Value answer)
{
    answer["boots"] = boots;
    if (!options.history && !options.form.csv) {
        answer.erase("boots");
        answer.erase("more");
    }
    concludeRows(session, options.form,
        {answer, "boots", bootColumns, [&](int) { return uptimeLines(answer, options.history); }});
}

int runUptime(Session& session, const UptimeOptions& options)
{
    PagedQuestion question{.method = method::uptimeBoots, .list = "boots", .cursor = "before", .entry = "boot"};
    question.wanted = options.history || options.form.csv ? options.rows : 1;
    if (options.days > 0) {
        question.parameters["from"] = wallTime() - options.days * day;
    }
    return session.run([&] {
        askPages(session, question,
            [&](const Value& boots, const Value& last) { reportUptime(session, options, boots, last); });
    });
}

} // namespace

void addUptime(Grammar& grammar)
{
    auto [uptime, options] = grammar.add("uptime", "How long the machine has been up, and its boots before", runUptime);
    uptime.examples(uptimeExamples);
    uptime.flag("--history", options.history, "Also list the boots, newest first");
    uptime.count("-n,--rows", options.rows, "List at most so many");
    uptime.days(options.days, "Look back so many days only");
    addRowsOptions(uptime, options.form);
}

} // namespace meridal
