// SPDX-License-Identifier: Apache-2.0
#include "client/commands/CheckAlerts.h"
#include "client/commands/CheckQuery.h"
#include "client/commands/Commands.h"
#include "client/commands/RepeatedView.h"
#include "client/screen/StyledText.h"

#include <iterator>
#include <sstream>

namespace meridal {

namespace {

constexpr const char* checkExamples =
    R"(One line each topic, and below it what is wrong. The first line and the exit status are those of
monitoring plugins: 0 fine, 1 warning, 2 critical, 3 unknown. From what on it warns is in [check] of
meridald.conf(5). Disks that sleep stay asleep.

Examples:
  meridalctl check
  meridalctl check disks sensors
  meridalctl check --json | jq -r '.topics[] | select(.state != "ok") | .topic'
  meridalctl check --watch --alert
)";

constexpr double checkWatchInterval = 10; // s

struct CheckOptions {
    std::vector<std::string> topics;
    bool json = false;
    bool watch = false;
    CheckAlertOptions alerts;
};

std::vector<std::string> topicsOf(const CheckOptions& options)
{
    return options.topics.empty() ? std::vector<std::string>(std::begin(checkTopics), std::end(checkTopics))
                                  : options.topics;
}

Style styleOfState(std::string_view state)
{
    return state == "critical" ? Style::High : state == "warning" || state == "unknown" ? Style::Warning : Style::Plain;
}

/// The same text in the colours of its topics.
Lines linesOfCheck(const CheckReport& report)
{
    Lines lines = {{{styleOfState(wordOf(report.state())), checkHeadline(report, false)}}};
    for (const CheckedTopic& topic : report.topics) {
        for (const std::string& line : topicLines(topic)) {
            lines.push_back({{styleOfState(wordOf(topic.state())), line}});
        }
    }
    return lines;
}

int watchCheck(Session& session, const CheckOptions& options)
{
    CheckReport latest;
    RepeatedView view(session,
        {.ask =
                [&](const auto& use) {
                    askCheck(session, topicsOf(options), CheckReading::Passive,
                        [&latest, use](CheckReport report, const Value&) {
                            latest = std::move(report);
                            use(jsonOf(latest));
                        });
                },
            .list = "topics",
            .lines = [&latest](const Value&, int) { return linesOfCheck(latest); },
            .interval = checkWatchInterval,
            .json = options.json});
    constexpr double reconnectInterval = 1; // s
    session.client().setReconnectInterval(reconnectInterval);
    const int status = session.runUntilInterrupted([&view] { view.start(); });
    return status == exitStatus::success ? status : exitStatusOf(CheckState::Unknown);
}

int runCheck(Session& session, const CheckOptions& options)
{
    if (options.alerts.alert || options.alerts.notify) {
        return watchForAlerts(session, topicsOf(options), options.alerts);
    }
    return options.watch ? watchCheck(session, options) : runCheckOf(session, topicsOf(options), options.json);
}

} // namespace

void addCheck(Grammar& grammar)
{
    auto [check, options] = grammar.add("check", "Whether all is well, for people and monitoring plugins", runCheck);
    check.examples(checkExamples);
    check.anyChoices("topics", options.topics, {std::begin(checkTopics), std::end(checkTopics)}, "Only these");
    check.flag("--json", options.json, "As JSON");
    check.flag("--watch", options.watch, "Look again and again, until interrupted");
    check.flag("--alert", options.alerts.alert,
        "With --watch, run the command and send the mail of [alerts] when a state changes");
    check.flag("--notify", options.alerts.notify,
        "With --watch, show changes as notifications on the desktop where [alerts] allows that");
    for (const char* flag : {"--alert", "--notify"}) {
        check.need(flag, "--watch");
        check.exclude(flag, "--json");
    }
}

} // namespace meridal
