// SPDX-License-Identifier: Apache-2.0
#include "collectors/process/TrafficCounterCollector.h"

#include "collectors/process/ProcessStatCollector.h"
#include "platform/Context.h"
#include "platform/host/Host.h"

#include <algorithm>
#include <utility>

namespace meridal {

namespace {

constexpr double linkHeader = 14; ///< bytes; Ethernet's, and as good as everybody's

TrafficShare shareOf(const TrafficCount& count)
{
    const auto received = static_cast<double>(count.bytesReceived);
    const auto sent = static_cast<double>(count.bytesSent);
    // The three are not read at one moment: bare ones may be ahead of those that they are among.
    const std::uint64_t packets = count.packetsReceived + count.packetsSent;
    const auto framed = static_cast<double>(packets > count.barePackets ? packets - count.barePackets : 0);
    return {.download = received, .upload = sent, .linkBytes = received + sent + linkHeader * framed};
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
    rest_ = told_ = known_ = waiting_ = {};
}

void TrafficCounterCollector::process()
{
    processes_.clearBandwidth();
    latest_ = {};
    if (counting_) {
        const TrafficReading& reading = counting_->read();
        for (const TrafficCount& count : reading.counts) {
            fold(count);
        }
        latest_.kernel = takeRest(reading);
    }
    processes_.updatePCapBandwidth();
    total_ += latest_;
}

void TrafficCounterCollector::fold(const TrafficCount& count)
{
    const TrafficShare share = shareOf(count);
    if (auto* item = itemOf(count)) {
        item->addTraffic(share.download, share.upload);
        (count.isElsewhere ? elsewhere_ : latest_.processes) += share;
    } else {
        (count.isElsewhere ? elsewhere_ : latest_.unattributed) += share;
    }
    latest_.frames += count.isElsewhere ? 0 : count.packetsReceived + count.packetsSent;
}

ProcessStatCollectorItem* TrafficCounterCollector::itemOf(const TrafficCount& count)
{
    if (count.process.pid == 0) {
        return nullptr;
    }
    auto* item = processes_.processForPid(count.process.pid);
    const bool isHis = item && item->startIdentity == count.process.startIdentity;
    return isHis ? item : processes_.endedProcess(count.process, count.name, count.ancestors);
}

/// What crossed the interfaces and is no socket's of a process.
TrafficShare TrafficCounterCollector::takeRest(const TrafficReading& reading)
{
    const TrafficShare waiting = shareOf(reading.waiting);
    TrafficShare known = latest_.processes;
    known += latest_.unattributed;
    known += waiting;
    known -= std::exchange(waiting_, waiting);
    const auto received = static_cast<double>(reading.interfaceBytesReceived);
    const auto sent = static_cast<double>(reading.interfaceBytesSent);
    rest_ += {.download = received, .upload = sent, .linkBytes = received + sent};
    rest_ -= known;
    TrafficShare rest;
    // What sockets counted and no interface ever will (dropped in a queue, a multicast for each of several receivers)
    // must not hide the kernel's traffic for ever: only two readings' worth may still be on its way.
    TrafficShare under = known;
    under += std::exchange(known_, known);
    for (double TrafficShare::*way : {&TrafficShare::download, &TrafficShare::upload, &TrafficShare::linkBytes}) {
        rest.*way = growth(rest_.*way, told_.*way);
        const double tooMuch = std::max(told_.*way - (rest_.*way + under.*way), 0.0);
        told_.*way -= tooMuch;
        total_.kernel.*way = std::max(total_.kernel.*way - tooMuch, 0.0);
    }
    return rest;
}

} // namespace meridal
