#include "collectors/process/TrafficCounterCollector.h"

#include "collectors/process/ProcessStatCollector.h"
#include "platform/Context.h"
#include "platform/host/Host.h"

#include <algorithm>
#include <utility>

namespace meridal {

namespace {

constexpr int mostGenerations = 8;
constexpr double linkHeader = 14; ///< bytes; Ethernet's, and as good as everybody's

TrafficShare shareOf(const TrafficCount& count)
{
    const auto received = static_cast<double>(count.bytesReceived);
    const auto sent = static_cast<double>(count.bytesSent);
    const auto packets = static_cast<double>(count.packetsReceived + count.packetsSent);
    return {.download = received, .upload = sent, .linkBytes = received + sent + linkHeader * packets};
}

/// How far `now` is beyond all that it was before, which `most` keeps.
double growth(double now, double& most)
{
    const double before = std::exchange(most, std::max(now, most));
    return most - before;
}

} // namespace

TrafficCounterCollector::TrafficCounterCollector(Context& context, ProcessStatCollector& processes)
    : context_(context), processes_(processes)
{
}

TrafficCounterCollector::~TrafficCounterCollector() = default;

TrafficCounterCollector& TrafficCounterCollector::sharedTrafficCounterCollector()
{
    // Never destroyed: at exit the context may go first.
    static auto& instance = *new TrafficCounterCollector(Context::shared(), ProcessStatCollector::sharedProcesses());
    return instance;
}

Result<void> TrafficCounterCollector::start()
{
    stop();
    auto counting = context_.host.trafficCounters->start();
    if (!counting) {
        return unexpected(counting.error().code, counting.error().message);
    }
    counting_ = std::move(*counting);
    return {};
}

void TrafficCounterCollector::stop()
{
    counting_.reset();
    rest_ = told_ = known_ = {};
}

void TrafficCounterCollector::process()
{
    processes_.clearBandwidth();
    latest_ = {};
    if (counting_) {
        const TrafficReading& reading = counting_->read();
        for (const TrafficCount& count : reading.counts) {
            parents_[count.pid] = count.parentPid;
        }
        for (const TrafficCount& count : reading.counts) {
            fold(count);
        }
        parents_.clear();
        latest_.kernel = takeRest(reading);
    }
    processes_.updatePCapBandwidth();
    total_ += latest_;
}

void TrafficCounterCollector::fold(const TrafficCount& count)
{
    const TrafficShare share = shareOf(count);
    if (auto* item = nearestOf(count)) {
        item->setNetworkDownload(item->networkDownload() + share.download);
        item->setNetworkUpload(item->networkUpload() + share.upload);
        (count.isElsewhere ? elsewhere_ : latest_.processes) += share;
    } else {
        (count.isElsewhere ? elsewhere_ : latest_.unattributed) += share;
    }
    latest_.frames += count.isElsewhere ? 0 : count.packetsReceived + count.packetsSent;
}

/// The process, or the first of its ancestors that is still there; a parent that ended as well is known if it had traffic.
/// Who has one of their pids by now and was born later is a stranger.
ProcessStatCollectorItem* TrafficCounterCollector::nearestOf(const TrafficCount& count)
{
    std::int32_t pid = count.pid;
    std::int32_t parent = count.parentPid;
    for (int generation = 0; generation < mostGenerations && pid > 0; ++generation) {
        auto* item = processes_.processForPid(pid);
        if (item && (count.startIdentity == 0 || item->startIdentity() <= count.startIdentity)) {
            return item;
        }
        pid = parent > 1 ? parent : 0;
        const auto known = parents_.find(pid);
        parent = known == parents_.end() ? 0 : known->second;
    }
    return nullptr;
}

/// What crossed the interfaces and was no socket's of a process.
TrafficShare TrafficCounterCollector::takeRest(const TrafficReading& reading)
{
    TrafficShare known = latest_.processes;
    known += latest_.unattributed;
    const auto received = static_cast<double>(reading.interfaceBytesReceived);
    const auto sent = static_cast<double>(reading.interfaceBytesSent);
    rest_.download += received - known.download;
    rest_.upload += sent - known.upload;
    rest_.linkBytes += received + sent - known.linkBytes;
    const TrafficShare rest{.download = growth(rest_.download, told_.download),
        .upload = growth(rest_.upload, told_.upload),
        .linkBytes = growth(rest_.linkBytes, told_.linkBytes)};
    // What sockets counted and no interface ever will (dropped in a queue, a multicast for each of several receivers)
    // must not hide the kernel's traffic for ever: only two readings' worth may still be on its way.
    TrafficShare under = known;
    under += known_;
    known_ = known;
    told_.download = std::min(told_.download, rest_.download + under.download);
    told_.upload = std::min(told_.upload, rest_.upload + under.upload);
    told_.linkBytes = std::min(told_.linkBytes, rest_.linkBytes + under.linkBytes);
    return rest;
}

} // namespace meridal
