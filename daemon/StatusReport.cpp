// SPDX-License-Identifier: Apache-2.0
#include "daemon/StatusReport.h"

#include "base/Log.h"
#include "base/Runtime.h"
#include "base/Value.h"
#include "daemon/MeridalDaemon.h"
#include "daemon/MeridalHistory.h"
#include "daemon/Parameters.h"
#include "database/HistoryDatabaseController.h"
#include "platform/host/Host.h"
#include "wire/Methods.h"
#include "wire/Version.h"

#include <map>
#include <string>
#include <utility>

namespace meridal {

StatusReport::StatusReport(MeridalDaemon& daemon, std::function<ListenerStatistics()> transport)
    : daemon_(daemon), transport_(std::move(transport)), startedAt_(daemon.context().runtime.monotonicTime())
{
}

/// On Linux the kernel walks through all pages of the daemon to tell what of them is its own.
SelfUsageReading StatusReport::reading(double oldest)
{
    SelfUsage& usage = *daemon_.context().host.selfUsage;
    const double now = daemon_.context().runtime.monotonicTime();
    if (!readAt_ || now - *readAt_ >= oldest) {
        readAt_ = now;
        reading_ = usage.read();
    } else {
        static_cast<SelfCost&>(reading_) = usage.readCost();
    }
    return reading_;
}

Dictionary StatusReport::usage(double oldest)
{
    const SelfUsageReading reading = this->reading(oldest);
    Dictionary usage = Dictionary::object();
    put(usage, "cpuSeconds", reading.cpuSeconds);
    put(usage, "residentBytes", reading.residentBytes);
    put(usage, "proportionalBytes", reading.proportionalBytes);
    put(usage, "wakeups", reading.wakeups);
    put(usage, "bytesWritten", reading.bytesWritten);
    put(usage, "openDescriptors", reading.openDescriptors);

    const double now = daemon_.context().runtime.monotonicTime();
    const UsageWindow::Means minute = daemon_.usage().lastMinute(now);
    put(usage, "period", std::optional(minute.period));
    put(usage, "cpuPercent", minute.cpuPercent);
    put(usage, "wakeupsPerSecond", minute.wakeupsPerSecond);
    const UsageWindow::Means all = daemon_.usage().sinceStart(now);
    put(usage, "cpuPercentSinceStart", all.cpuPercent);
    put(usage, "wakeupsPerSecondSinceStart", all.wakeupsPerSecond);
    return usage;
}

Dictionary StatusReport::transportFigures() const
{
    const ListenerStatistics figures = transport_();
    return {{"openConnections", figures.openConnections}, {"acceptedConnections", figures.acceptedConnections},
        {"requests", figures.requests}, {"badRequests", figures.badRequests}, {"envelopesSent", figures.envelopesSent},
        {"envelopesDropped", figures.envelopesDropped}};
}

void StatusReport::addSection(std::string key, std::function<Dictionary()> describe)
{
    sections_.emplace_back(std::move(key), std::move(describe));
}

Dictionary StatusReport::databaseFigures() const
{
    const auto* databases = daemon_.context().databases;
    DatabaseStatistics sum;
    std::uint64_t files = 0;
    std::uint64_t failing = 0;
    for (const auto& [name, one] : databases ? databases->statistics() : std::map<std::string, DatabaseStatistics>()) {
        ++files;
        sum.rowsWritten += one.rowsWritten;
        sum.batchesFailed += one.batchesFailed;
        sum.statementsWaiting += one.statementsWaiting;
        sum.statementsDropped += one.statementsDropped;
        sum.filesSetAside += one.filesSetAside;
        sum.bytes += one.bytes;
        failing += one.failing ? 1 : 0;
    }
    return {{"files", files}, {"bytes", sum.bytes}, {"rowsWritten", sum.rowsWritten},
        {"batchesFailed", sum.batchesFailed}, {"statementsWaiting", sum.statementsWaiting},
        {"statementsDropped", sum.statementsDropped}, {"filesSetAside", sum.filesSetAside}, {"failing", failing}};
}

void StatusReport::addTo(MeridalHistory& methods)
{
    methods.addMethod(method::status, [this](const Value& given) -> Result<Value> {
        return Result<Value>(build(Parameters(given).flag("passive") ? passiveAge : 0));
    });
}

Dictionary StatusReport::build(double oldest)
{
    Context& context = daemon_.context();
    const PassStatistics& passes = daemon_.passStatistics();
    Dictionary report = {
        {"version", protocolVersion},
        {"build", protocolBuild},
        {"release", releaseVersion()},
        {"system", context.host.machine->systemName()},
        {"uptime", context.runtime.monotonicTime() - startedAt_},
        {"wallTime", context.runtime.wallTime()},
        {"clients", daemon_.server().connections().size()},
        {"usage", usage(oldest)},
        {"transport", transportFigures()},
        {"passes", {{"count", passes.count}, {"lastSeconds", passes.lastSeconds}, {"processes", passes.processes}}},
        {"databases", databaseFigures()},
        {"log", {{"droppedLines", context.log.droppedLines()}}},
        {"limitations", context.host.limitations->all()},
        {"paths",
            {{"support", context.paths.support.string()}, {"logs", context.paths.logs.string()},
                {"socket", context.paths.socket().string()}}},
    };
    for (const auto& [key, describe] : sections_) {
        report[key] = describe();
    }
    return report;
}

} // namespace meridal
