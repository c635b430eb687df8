// SPDX-License-Identifier: Apache-2.0
#include "client/commands/Commands.h"
#include "client/commands/TimeStretch.h"
#include "client/screen/FileReplacement.h"
#include "client/screen/WallClock.h"
#include "metrics/Backfill.h"
#include "metrics/Metrics.h"

#include <utility>

namespace meridal {

namespace {

constexpr const char* metricsExamples =
    R"(Every current figure, in the text formats of Prometheus. FILE is replaced at once and whole, as
node_exporter's textfile collector wants it, which takes the first of the two formats only. Without
a daemon it says so (meridal_up 0), and the status is 2. With --backfill it is what was recorded, as
OpenMetrics with times, for a Prometheus that scrapes this machine from now on.

Examples:
  meridalctl metrics
  meridalctl metrics --openmetrics --groups 20
  meridalctl metrics --output /var/lib/prometheus/node-exporter/meridal.prom
  meridalctl metrics --backfill --from "2026-10-01" > past.om
  promtool tsdb create-blocks-from openmetrics past.om /var/lib/prometheus/metrics2
)";

struct MetricsCommandOptions {
    bool openMetrics = false;
    std::string outputPath; ///< empty: standard output
    bool all = false;
    std::size_t groups = MetricsOptions().groups;
    bool noWifiNames = false;
    bool backfill = false;
    TimeWords time; ///< of that

    MetricsOptions wanted() const { return {.all = all, .wifiNames = !noWifiNames, .groups = groups}; }
    MetricsFormat format() const { return openMetrics ? MetricsFormat::OpenMetrics : MetricsFormat::Prometheus; }
};

/// Answers why not, or nothing.
std::string writeOut(const MetricsCommandOptions& options, const std::string& content)
{
    if (!options.outputPath.empty()) {
        const std::string obstacle = replaceFile(options.outputPath, content);
        return obstacle.empty() ? "" : "cannot replace " + options.outputPath + ": " + obstacle;
    }
    Output output(false);
    return output.write(content) || output.readerLeft() ? "" : output.failure();
}

MetricsCaller callerOf(Session& session)
{
    return [&session](const std::string& method, const Value& parameters, auto reply) {
        session.client().call(method, parameters, std::move(reply));
    };
}

int runBackfill(Session& session, const MetricsCommandOptions& options)
{
    const double now = wallTime();
    const auto stretch = options.time.from.empty()
        ? unexpected(ErrorCode::InvalidArgument, "--backfill takes --from TIME: where to begin")
        : timeStretchFrom(options.time, {}, now);
    if (!stretch) {
        session.fail(exitStatus::usage, stretch.error().message);
        return exitStatus::usage;
    }
    return session.run([&] {
        askBackfill(
            callerOf(session),
            {.from = stretch->from, .until = stretch->until, .now = now, .options = options.wanted()},
            [&session](const std::string& piece) { return session.print(piece); },
            [&session](const Result<void>& result) {
                if (result) {
                    return session.finish(exitStatus::success);
                }
                const bool isAway = result.error().code == ErrorCode::Unavailable;
                session.fail(isAway ? exitStatus::noDaemon : exitStatus::refused,
                    result.error().message + "; what came before has no end");
            });
    });
}

int runMetrics(Session& session, const MetricsCommandOptions& options)
{
    if (options.backfill) {
        return runBackfill(session, options);
    }
    MetricsSnapshot answer;
    const int status = session.run([&] {
        askMetrics(callerOf(session), options.wanted(), [&](MetricsSnapshot snapshot) {
            answer = std::move(snapshot);
            if (answer.isUp) {
                return session.finish(exitStatus::success);
            }
            session.fail(
                exitStatus::noDaemon, "the daemon left before it had answered (" + session.client().socketPath() + ")");
        });
    });
    // Also when nobody answered: figures that just stay away raise no alert.
    if (const std::string complaint = writeOut(options, metricsText(answer, options.wanted(), options.format()));
        !complaint.empty()) {
        complain(complaint);
        return status == exitStatus::success ? exitStatus::refused : status;
    }
    return status;
}

} // namespace

void addMetrics(Grammar& grammar)
{
    auto [metrics, options] = grammar.add("metrics", "Every current figure, for Prometheus and its kin", runMetrics);
    metrics.examples(metricsExamples);
    metrics.flag("--openmetrics", options.openMetrics, "In the format OpenMetrics 1.0");
    metrics.text("--output", options.outputPath, "FILE", "Replace this file instead of printing");
    metrics.flag("--all", options.all, "Also what the usual exporter of a machine's own figures has");
    metrics.countOrNone("--groups", options.groups, mostMetricGroups, "Tell so many applications apart; 0: none");
    metrics.flag("--no-wifi-names", options.noWifiNames, "Add up Wi-Fi networks instead of naming them");
    metrics.flag("--backfill", options.backfill, "What was recorded, as OpenMetrics with times");
    metrics.text("--from", options.time.from, "TIME", "From then on: \"-30d\", \"2026-11-20 18:30\"");
    metrics.text("--until", options.time.until, "TIME", "Until then, not now");
    metrics.need("--from", "--backfill");
    metrics.need("--until", "--backfill");
    metrics.exclude("--backfill", "--output");
    metrics.exclude("--backfill", "--no-wifi-names");
}

} // namespace meridal
