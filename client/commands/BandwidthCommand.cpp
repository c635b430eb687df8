// SPDX-License-Identifier: Apache-2.0
#include "base/Text.h"
#include "client/commands/Commands.h"
#include "client/commands/Pages.h"
#include "client/commands/Pictures.h"
#include "client/plot/BarChart.h"
#include "client/screen/Format.h"
#include "client/screen/Terminal.h"
#include "client/screen/WallClock.h"
#include "client/views/Answers.h"
#include "client/views/BandwidthView.h"
#include "wire/Methods.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <string>
#include <utility>
#include <vector>

namespace meridal {

namespace {

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

constexpr int shareColumns = 30;

struct BandwidthOptions {
    std::string by = "day"; ///< hour, day, month, interface, network or station
    double days = 0;        ///< how far back; 0: as is usual
    std::string interface;  ///< empty: of all
    bool all = false;       ///< interfaces that are no hardware as well
    std::string svgPath;    ///< empty: no picture; "-": standard output
    bool csv = false;
    bool json = false;
};

constexpr std::array<const char*, 7> totalColumns = {"key", "name", "bssid", "start", "end", "download", "upload"};

/// How far back to look when nothing is said: as much as fits a screen. 0: all there is.
double usualDays(const std::string& by) { return by == "hour" ? 1 : by == "day" ? 30 : by == "month" ? 366 : 0; }

PagedQuestion questionFor(const BandwidthOptions& options)
{
    PagedQuestion question{.method = method::bandwidthTotals, .list = "totals"};
    question.parameters["by"] = options.by;
    if (const double days = options.days > 0 ? options.days : usualDays(options.by); days > 0) {
        question.parameters["from"] = wallTime() - days * day;
    }
    if (!options.interface.empty()) {
        question.parameters["interface"] = validUtf8(options.interface);
    }
    if (options.all) {
        question.parameters["interfaces"] = "all";
    }
    return question;
}

Lines barLines(const std::string& by, const std::vector<AmountBar>& bars, const Value& answer)
{
    if (bars.empty()) {
        return {{{Style::Plain, "nothing recorded"}}};
    }
    Lines lines = barChartLines(upperCase(by), bars, shareColumns, terminalColumns().value_or(0));
    const double download = number(answer, "download").value_or(0);
    const double upload = number(answer, "upload").value_or(0);
    lines.push_back({});
    lines.push_back({{Style::Title, "all"},
        {Style::Plain,
            "  " + formatBytes(download) + " down, " + formatBytes(upload) + " up, " + formatBytes(download + upload)
                + " together"}});
    return lines;
}

void reportBandwidth(Session& session, const BandwidthOptions& options, const Value& totals, Value answer)
{
    const std::vector<AmountBar> bars = bandwidthBars(totals, options.by);
    if (!options.svgPath.empty()) {
        return concludePicture(session, barsSvg(barPicture("Bandwidth by " + options.by, bars)), options.svgPath);
    }
    if (options.csv) {
        session.conclude(csvOf(totals, totalColumns));
    } else if (options.json) {
        answer["totals"] = totals;
        answer["more"] = false;
        session.conclude(answerLine(answer));
    } else {
        session.conclude(barLines(options.by, bars, answer));
    }
}

/// Nothing is recorded of an interface that has been idle, and of one that there is not: the latter is a mistake.
void reportUnlessMisspelt(Session& session, const BandwidthOptions& options, Value answer)
{
    askPages(session, {.method = method::networkInterfaces, .list = "interfaces", .entry = "index"},
        [&session, &options, answer = std::move(answer)](const Value& interfaces, const Value&) {
            std::vector<std::string> names;
            for (const Value& interface : interfaces) {
                names.push_back(printable(text(interface, "interface").value_or("")));
            }
            if (std::find(names.begin(), names.end(), printable(options.interface)) == names.end()) {
                return session.fail(exitStatus::refused,
                    fmt::format(
                        "there is no interface \"{}\"; there is: {}", options.interface, fmt::join(names, ", ")));
            }
            reportBandwidth(session, options, Value::array(), answer);
        });
}

int runBandwidth(Session& session, const BandwidthOptions& options)
{
    return session.run([&] {
        askPages(session, questionFor(options), [&](const Value& totals, const Value& last) {
            const bool maybeMisspelt = totals.empty() && !options.interface.empty();
            maybeMisspelt ? reportUnlessMisspelt(session, options, last)
                          : reportBandwidth(session, options, totals, last);
        });
    });
}

} // namespace

void addBandwidth(Grammar& grammar)
{
    auto [bandwidth, options] = grammar.add("bandwidth", "What went through the network interfaces", runBandwidth);
    bandwidth.examples(bandwidthExamples);
    bandwidth.choice("--by", options.by, {"hour", "day", "month", "interface", "network", "station"}, "How to add up");
    bandwidth.days(options.days, "Look back so many days");
    bandwidth.text("--interface", options.interface, "NAME", "Of this interface only");
    bandwidth.flag("--all", options.all, "Also of interfaces that are no hardware");
    bandwidth.text("--svg", options.svgPath, "FILE", "Write a picture for browsers; - is standard output");
    bandwidth.flag("--csv", options.csv, "As comma-separated values");
    bandwidth.flag("--json", options.json, "As JSON");
    bandwidth.exclude("--csv", "--json");
    bandwidth.exclude("--svg", "--csv");
    bandwidth.exclude("--svg", "--json");
}

} // namespace meridal
