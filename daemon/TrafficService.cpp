// SPDX-License-Identifier: Apache-2.0
#include "daemon/TrafficService.h"

#include "collectors/process/NetworkStatisticsStatCollector.h"
#include "collectors/process/PacketStatCollector.h"
#include "collectors/process/TrafficCounterCollector.h"
#include "platform/Context.h"
#include "platform/host/Host.h"

#include <algorithm>
#include <cmath>

namespace meridal {

namespace {

constexpr const char* captureLimitation = "packet-capture";
constexpr const char* countersLimitation = "traffic-counters";
constexpr const char* recordLimitation = "traffic-record";

/// How far a share is beyond the most that it was before, each way by itself.
TrafficShare beyond(const TrafficShare& now, TrafficShare& most)
{
    TrafficShare grown;
    for (double TrafficShare::*way : {&TrafficShare::download, &TrafficShare::upload, &TrafficShare::linkBytes}) {
        grown.*way = std::max(now.*way - most.*way, 0.0);
        most.*way += grown.*way;
    }
    return grown;
}

Value directions(const TrafficShare& share) { return {{"d", share.download}, {"u", share.upload}}; }

} // namespace

TrafficSource trafficSourceFrom(std::string_view name)
{
    using enum TrafficSource;
    return name == "bpf" ? Bpf : name == "pcap" ? Pcap : name == "sockets" ? Sockets : Auto;
}

TrafficService::TrafficService(
    Context& context, const Collectors& collectors, TrafficSource source, bool recordsByCapture)
    : context_(context)
    , counters_(collectors.counters)
    , packets_(collectors.packets)
    , statistics_(collectors.statistics)
    , source_(source)
    , recordsByCapture_(recordsByCapture)
{
    statistics_.setFigure(NetworkStatisticsStatCollector::Figure::Bytes); // as the others give them
}

TrafficService::~TrafficService()
{
    folded_ = {};
    stopRecording();
    stop();
}

// Who holds it

void TrafficService::startRecording()
{
    wantsRecord_ = true;
    choose();
    sayWhetherRecorded();
}

void TrafficService::stopRecording()
{
    wantsRecord_ = false;
    context_.host.limitations->clear(recordLimitation);
    if (!isWatched_) {
        stop();
    }
}

bool TrafficService::recordsByStatistics() const
{
    return source_ != TrafficSource::Bpf && source_ != TrafficSource::Pcap
        && context_.host.networkStatistics->knowsEveryConnection();
}

bool TrafficService::isRecording() const
{
    if (!wantsRecord_ || counters_.isCounting()) {
        return wantsRecord_;
    }
    return packets_.isCapturing() ? recordsByCapture_ || recordsByStatistics()
                                  : statistics_.isStarted() && recordsByStatistics();
}

void TrafficService::sayWhetherRecorded()
{
    if (isRecording()) {
        context_.host.limitations->clear(recordLimitation);
    } else if (wantsRecord_) {
        context_.host.limitations->set(recordLimitation,
            "the kernel does not count traffic by process here, and packets are captured only while somebody asks");
    }
}

void TrafficService::start()
{
    if (!isWatched_) {
        isWatched_ = true;
        shown_ = {};
    }
    choose();
    sayWhetherRecorded();
}

void TrafficService::stop()
{
    isWatched_ = false;
    if (wantsRecord_) {
        leaveClientsSource();
        return;
    }
    counters_.stop();
    packets_.stopCapture();
    statistics_.stop();
}

/// What was captured for clients is the record's up to here, too; it goes on as it can.
void TrafficService::leaveClientsSource()
{
    const bool isByStatistics = statistics_.isStarted() && recordsByStatistics();
    if (counters_.isCounting() || isByStatistics || mayCapture()) {
        return;
    }
    if (packets_.enabled()) {
        process();
        packets_.stopCapture();
    }
    statistics_.stop();
    if (recordsByStatistics()) {
        startStatistics();
        statistics_.updateStats(); // what connections have carried until now
    }
}

// Where it comes from

/// The first source that can be had; one that runs goes on, and with it the others' figures.
void TrafficService::choose()
{
    if (counters_.isCounting() || packets_.isCapturing()) {
        return;
    }
    if (startCounters()) {
        foldStatistics();
        packets_.stopCapture(); // which may have failed before, and would begin anew when the network changes
        leaveFallBack();
    } else if (mayCapture() && startCapture()) {
        foldStatistics();
        leaveFallBack();
    } else if (isWatched_ || recordsByStatistics()) {
        startStatistics();
    }
}

bool TrafficService::startCounters()
{
    if (source_ != TrafficSource::Auto && source_ != TrafficSource::Bpf) {
        return false;
    }
    const auto started = counters_.start();
    if (started) {
        context_.host.limitations->clear(countersLimitation);
    } else if (source_ == TrafficSource::Bpf || started.error().code != ErrorCode::NotFound) {
        context_.host.limitations->set(
            countersLimitation, "the kernel does not count traffic by process (" + started.error().message + ")");
    }
    return started.has_value();
}

bool TrafficService::startCapture()
{
    if (!mayCapture_ || (source_ != TrafficSource::Auto && source_ != TrafficSource::Pcap)) {
        return false;
    }
    packets_.startCaputure();
    return packets_.isCapturing();
}

void TrafficService::startStatistics()
{
    if (source_ == TrafficSource::Bpf) {
        return;
    }
    const auto started = statistics_.isStarted() ? Result<void>() : statistics_.start();
    if (!isWatched_) {
        return; // nobody has captured, or would
    }
    if (source_ != TrafficSource::Sockets) {
        sayWhy(started ? "traffic per process is that of the kernel's counters of connections"
                       : "nor are the kernel's counters of connections there: " + started.error().message);
    } else if (!started) {
        context_.host.limitations->set(captureLimitation, started.error().message);
    }
}

/// Why packets are not captured, and what is done instead.
void TrafficService::sayWhy(const std::string& instead)
{
    const std::string why = mayCapture_ ? packets_.failure() : "the configuration does not allow it";
    context_.host.limitations->set(captureLimitation, "packets cannot be captured (" + why + "); " + instead);
}

/// One source at a time: what both count would be counted twice.
void TrafficService::leaveFallBack()
{
    statistics_.stop();
    context_.host.limitations->clear(captureLimitation);
}

// The fold

void TrafficService::process()
{
    if (!isWatched_ && !isRecording()) {
        foldedAt_ = 0;
        return;
    }
    fold();
    noteFold();
    const double now = context_.runtime.monotonicTime();
    const double before = std::exchange(foldedAt_, now);
    foldSeconds_ = before > 0 ? now - before : 0;
}

void TrafficService::noteFold()
{
    hasCounted_ = hasCounted_ || std::string_view(sourceInUse()) != "none";
    sum_ += fold_;
    if (isRecording() && folded_) {
        folded_(fold_);
    }
}

void TrafficService::fold()
{
    fold_ = shown_ = {};
    if (counters_.isCounting()) {
        counters_.process();
        fold_ = shown_ = counters_.latest();
        fold_.kernel = beyond(counters_.total().kernel, toldKernel_);
        return;
    }
    if (statistics_.isStarted() && packets_.isCapturing()) {
        leaveFallBack(); // the network changed, and with it the capture began anew
    }
    if (statistics_.isStarted()) {
        statistics_.updateStats();
        fold_ = statistics_.latest();
        return;
    }
    packets_.process();
    fold_ = shown_ = packets_.latest();
    if (packets_.enabled() && !packets_.isCapturing()) {
        startStatistics(); // it ended by itself
    }
}

/// Before another source takes over.
void TrafficService::foldStatistics()
{
    if (statistics_.isStarted()) {
        statistics_.updateStats();
        fold_ = statistics_.latest();
        noteFold();
    }
}

Dictionary TrafficService::latestShares() const
{
    Dictionary shares = {{"source", sourceInUse()}};
    if (counters_.isCounting() || packets_.isCapturing()) {
        shares["attributed"] = directions(shown_.processes);
        shares["kernel"] = directions(shown_.kernel);
        shares["unattributed"] = directions(shown_.unattributed);
    }
    return shares;
}

const char* TrafficService::sourceInUse() const
{
    if (counters_.isCounting()) {
        return "bpf";
    }
    return packets_.isCapturing() ? "capture" : statistics_.isStarted() ? "counters" : "none";
}

Dictionary TrafficService::owners() const
{
    const auto bytes = [](double figure) { return static_cast<std::uint64_t>(std::llround(std::max(figure, 0.0))); };
    const auto ways = [&bytes](const TrafficShare& share) {
        return Dictionary{{"received", bytes(share.download)}, {"sent", bytes(share.upload)}};
    };
    return {
        {"process", ways(sum_.processes)}, {"kernel", ways(sum_.kernel)}, {"unattributed", ways(sum_.unattributed)}};
}

Dictionary TrafficService::describe() const
{
    TrafficAccount total = counters_.total(); // one of the two, unless the source changed between two clients
    total += packets_.total();
    const double all = total.processes.linkBytes + total.kernel.linkBytes + total.unattributed.linkBytes;
    Dictionary result = {
        {"source", sourceInUse()},
        {"recorded", isRecording()},
        {"frames", total.frames},
        {"droppedFrames", packets_.statistics().dropped},
        {"processBytes", total.processes.linkBytes},
        {"kernelBytes", total.kernel.linkBytes},
        {"unattributedBytes", total.unattributed.linkBytes},
    };
    if (counters_.isCounting()) {
        result["method"] = counters_.method();
        result["elsewhereBytes"] = counters_.elsewhere().linkBytes;
    }
    if (hasCounted_) {
        result["owners"] = owners();
    }
    if (all > 0) {
        result["unattributedPercent"] = total.unattributed.linkBytes / all * 100;
    }
    return result;
}

} // namespace meridal
