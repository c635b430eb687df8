#include "daemon/CaptureKeeper.h"

#include "collectors/process/NetworkStatisticsStatCollector.h"
#include "collectors/process/PacketStatCollector.h"
#include "daemon/CollectorPorts.h"
#include "platform/Context.h"
#include "platform/host/Host.h"

namespace meridal {

namespace {

constexpr const char* limitation = "packet-capture";

Value directions(const TrafficShare& share) { return {{"d", share.download}, {"u", share.upload}}; }

} // namespace

CaptureKeeper::CaptureKeeper(Context& context, PacketStatCollector& packets, NetworkStatisticsStatCollector& statistics)
    : context_(context), packets_(packets), statistics_(statistics)
{
    statistics_.setFigure(NetworkStatisticsStatCollector::Figure::Bytes); // as capture gives them
}

CaptureKeeper::~CaptureKeeper() { stop(); }

void CaptureKeeper::plugInto(CollectorPorts& ports)
{
    ports.prepareCapture = [] {}; // both collectors are there already, and idle
    ports.startCapture = [this] { start(); };
    ports.stopCapture = [this] { stop(); };
    ports.processCapture = [this] { process(); };
    ports.trafficShares = [this] { return latestShares(); };
}

void CaptureKeeper::start()
{
    if (packets_.isCapturing()) {
        return; // a client more: the others' figures go on
    }
    packets_.startCaputure();
    if (packets_.isCapturing()) {
        leaveFallBack();
    } else {
        fallBack();
    }
}

void CaptureKeeper::fallBack()
{
    const std::string reason = "packets cannot be captured (" + packets_.failure() + "); ";
    if (statistics_.isStarted()) {
        return;
    }
    const auto started = statistics_.start();
    context_.host.limitations->set(limitation,
        reason
            + (started ? "traffic per process is that of the kernel's counters of connections"
                       : "nor are the kernel's counters of connections there: " + started.error().message));
}

/// One source at a time: what both count would be counted twice.
void CaptureKeeper::leaveFallBack()
{
    statistics_.stop();
    context_.host.limitations->clear(limitation);
}

void CaptureKeeper::stop()
{
    packets_.stopCapture();
    statistics_.stop();
}

void CaptureKeeper::process()
{
    if (statistics_.isStarted() && packets_.isCapturing()) {
        leaveFallBack(); // the network changed, and with it the capture began anew
    }
    if (statistics_.isStarted()) {
        statistics_.updateStats();
        return;
    }
    packets_.process();
    if (packets_.enabled() && !packets_.isCapturing()) {
        fallBack(); // it ended by itself
    }
}

Value CaptureKeeper::latestShares() const
{
    if (!packets_.isCapturing()) {
        return nullptr;
    }
    const TrafficAccount& latest = packets_.latest();
    return {{"attributed", directions(latest.processes)}, {"kernel", directions(latest.kernel)},
        {"unattributed", directions(latest.unattributed)}};
}

Dictionary CaptureKeeper::describe() const
{
    const TrafficAccount& total = packets_.total();
    const CaptureStatistics statistics = packets_.statistics();
    const double all = total.processes.linkBytes + total.kernel.linkBytes + total.unattributed.linkBytes;
    Dictionary result = {
        {"source",
            packets_.isCapturing()        ? "capture"
                : statistics_.isStarted() ? "counters"
                                          : "none"},
        {"frames", total.frames},
        {"droppedFrames", statistics.dropped},
        {"processBytes", total.processes.linkBytes},
        {"kernelBytes", total.kernel.linkBytes},
        {"unattributedBytes", total.unattributed.linkBytes},
    };
    if (all > 0) {
        result["unattributedPercent"] = total.unattributed.linkBytes / all * 100;
    }
    return result;
}

} // namespace meridal
