// SPDX-License-Identifier: Apache-2.0
#include "collectors/process/NetworkStatisticsStatCollector.h"

#include "base/Rate.h"
#include "base/Runtime.h"
#include "collectors/process/ProcessStatCollector.h"
#include "platform/Context.h"
#include "platform/host/Host.h"

#include <utility>

namespace meridal {

NetworkStatisticsStatCollector::NetworkStatisticsStatCollector(Context& context, ProcessStatCollector& processes)
    : StatCollector(context, "NetworkStatisticsStatCollector"), processes_(processes)
{
}

NetworkStatisticsStatCollector::~NetworkStatisticsStatCollector() = default;

NetworkStatisticsStatCollector& NetworkStatisticsStatCollector::sharedNetworkStatisticsStatCollector()
{
    // Never destroyed: at exit the context may go first.
    static auto& instance =
        *new NetworkStatisticsStatCollector(Context::shared(), ProcessStatCollector::sharedProcesses());
    return instance;
}

Result<void> NetworkStatisticsStatCollector::start()
{
    stop();
    connections_.reserve(mostConnections); // addresses only: memory is taken by the slots that are used
    auto counting = context().host.networkStatistics->start();
    if (!counting) {
        return unexpected(counting.error().code, counting.error().message);
    }
    setEnabled(true);
    updatedAt_ = context().runtime.monotonicTime();
    counting_ = std::move(*counting);
    return {};
}

void NetworkStatisticsStatCollector::stop()
{
    counting_.reset();
    connections_ = {};
    places_ = {};
    freeSlots_ = {};
}

NetworkStatisticsStatCollector::Connection* NetworkStatisticsStatCollector::connectionWithRef(std::uint64_t ref)
{
    const auto place = places_.find(ref);
    return place == places_.end() ? nullptr : &connections_[place->second];
}

/// Null when the table is full.
NetworkStatisticsStatCollector::Connection* NetworkStatisticsStatCollector::addConnection(
    const CountedConnection& counted)
{
    std::uint32_t place = 0;
    if (!freeSlots_.empty()) {
        place = freeSlots_.back();
        freeSlots_.pop_back();
    } else if (connections_.size() < mostConnections) {
        place = static_cast<std::uint32_t>(connections_.size());
        connections_.emplace_back();
    } else {
        return nullptr;
    }
    places_.emplace(counted.id, place);
    Connection& connection = connections_[place];
    connection = {.free = 0, .latest = counted};
    if (counted.isNew) {
        connection.previousTime = updatedAt_; // when it was not there, so that all it has is of this interval
    }
    return &connection;
}

void NetworkStatisticsStatCollector::clearConnectionWithRef(std::uint64_t ref)
{
    const auto place = places_.find(ref);
    if (place != places_.end()) {
        clearConnectionAtIndex(place->second);
    }
}

void NetworkStatisticsStatCollector::clearConnectionAtIndex(std::size_t index)
{
    if (index >= connections_.size() || connections_[index].free != 0) {
        return;
    }
    places_.erase(connections_[index].latest.id);
    connections_[index] = {};
    freeSlots_.push_back(static_cast<std::uint32_t>(index));
}

/// Gives the free slots at the end back, so that a walk ends with the last one in use.
void NetworkStatisticsStatCollector::recalculateHighestRef()
{
    const std::size_t before = connections_.size();
    while (!connections_.empty() && connections_.back().free != 0) {
        connections_.pop_back();
    }
    if (connections_.size() < before) {
        std::erase_if(freeSlots_, [this](std::uint32_t slot) { return slot >= connections_.size(); });
    }
}

void NetworkStatisticsStatCollector::updateStats()
{
    processes_.clearBandwidth();
    latest_ = {};
    if (counting_) {
        const double now = context().runtime.monotonicTime();
        for (const CountedConnection& counted : counting_->read()) {
            updateConnection(counted);
        }
        processes_.updatePCapBandwidth();
        updatedAt_ = now;
    }
    recalculateHighestRef();
    if (updaterFinishBlock()) {
        updaterFinishBlock()(*this);
    }
}

void NetworkStatisticsStatCollector::updateConnection(const CountedConnection& counted)
{
    Connection* known = connectionWithRef(counted.id);
    Connection* connection = known ? known : addConnection(counted);
    if (!connection) {
        return;
    }
    connection->latest = counted;
    if (counted.pid && counted.countedAt > 0) { // bytes whose process is not known yet wait for it
        addToProcess(*connection);
    }
    if (counted.hasEnded) {
        clearConnectionWithRef(counted.id);
    }
}

void NetworkStatisticsStatCollector::addToProcess(Connection& connection)
{
    const CountedConnection& latest = connection.latest;
    const double before = connection.previousTime.value_or(latest.countedAt);
    connection.previousTime = latest.countedAt;
    // A first reading, unless of a source that is new, and one of a counter that started over say nothing.
    const auto rate = [&](std::uint64_t bytes, std::uint64_t& previous) {
        const CounterReading last{.identity = latest.id, .count = std::exchange(previous, bytes), .time = before};
        return ratePerSecond(last, {.identity = latest.id, .count = bytes, .time = latest.countedAt}).value_or(0);
    };
    const double download = rate(latest.bytesReceived, connection.previousReceived);
    const double upload = rate(latest.bytesSent, connection.previousSent);
    if (latest.protocol == 0 || latest.localPort == 0) {
        return;
    }
    const double seconds = latest.countedAt - before;
    const TrafficShare share{
        .download = download * seconds, .upload = upload * seconds, .linkBytes = (download + upload) * seconds};
    auto* item = processes_.processForPid(*latest.pid);
    (item ? latest_.processes : latest_.unattributed) += share;
    if (!item) {
        return;
    }
    const double factor = figure_ == Figure::Bytes ? seconds : 1.0;
    item->addTraffic(download * factor, upload * factor);
}

} // namespace meridal
