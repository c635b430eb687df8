#include "daemon/TrafficService.h"

#include "collectors/process/NetworkStatisticsStatCollector.h"
#include "collectors/process/PacketStatCollector.h"
#include "collectors/process/TrafficCounterCollector.h"
#include "platform/Context.h"
#include "platform/host/Host.h"

namespace meridal {

namespace {

constexpr const char* captureLimitation = "packet-capture";
constexpr const char* countersLimitation = "traffic-counters";

Value directions(const TrafficShare& share) { return {{"d", share.download}, {"u", share.upload}}; }

} // namespace

TrafficSource trafficSourceFrom(std::string_view name)
{
    using enum TrafficSource;
    return name == "bpf" ? Bpf : name == "pcap" ? Pcap : name == "sockets" ? Sockets : Auto;
}

TrafficService::TrafficService(Context& context, const Collectors& collectors, TrafficSource source)
    : context_(context)
    , counters_(collectors.counters)
    , packets_(collectors.packets)
    , statistics_(collectors.statistics)
    , source_(source)
{
    statistics_.setFigure(NetworkStatisticsStatCollector::Figure::Bytes); // as the others give them
}

TrafficService::~TrafficService() { stop(); }

void TrafficService::start()
{
    if (counters_.isCounting() || packets_.isCapturing()) {
        return; // a client more: the others' figures go on
    }
    if (startCounters()) {
        packets_.stopCapture(); // which may have failed before, and would begin anew when the network changes
        leaveFallBack();
    } else if (startCapture()) {
        leaveFallBack();
    } else {
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
    if (source_ == TrafficSource::Bpf || statistics_.isStarted()) {
        return;
    }
    const auto started = statistics_.start();
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

void TrafficService::stop()
{
    counters_.stop();
    packets_.stopCapture();
    statistics_.stop();
}

void TrafficService::process()
{
    if (counters_.isCounting()) {
        counters_.process();
        return;
    }
    if (statistics_.isStarted() && packets_.isCapturing()) {
        leaveFallBack(); // the network changed, and with it the capture began anew
    }
    if (statistics_.isStarted()) {
        statistics_.updateStats();
        return;
    }
    packets_.process();
    if (packets_.enabled() && !packets_.isCapturing()) {
        startStatistics(); // it ended by itself
    }
}

Dictionary TrafficService::latestShares() const
{
    Dictionary shares = {{"source", sourceInUse()}};
    if (counters_.isCounting() || packets_.isCapturing()) {
        const TrafficAccount& latest = counters_.isCounting() ? counters_.latest() : packets_.latest();
        shares["attributed"] = directions(latest.processes);
        shares["kernel"] = directions(latest.kernel);
        shares["unattributed"] = directions(latest.unattributed);
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

Dictionary TrafficService::describe() const
{
    TrafficAccount total = counters_.total(); // one of the two, unless the source changed between two clients
    total += packets_.total();
    const double all = total.processes.linkBytes + total.kernel.linkBytes + total.unattributed.linkBytes;
    Dictionary result = {
        {"source", sourceInUse()},
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
    if (all > 0) {
        result["unattributedPercent"] = total.unattributed.linkBytes / all * 100;
    }
    return result;
}

} // namespace meridal
