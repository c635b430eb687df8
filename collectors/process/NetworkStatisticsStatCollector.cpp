#include "collectors/process/NetworkStatisticsStatCollector.h"

#include "base/Runtime.h"
#include "collectors/process/ProcessStatCollector.h"
#include "platform/Context.h"
#include "platform/host/Host.h"

#include <algorithm>
#include <utility>

namespace meridal {

NetworkStatisticsStatCollector::NetworkStatisticsStatCollector(Context& context, ProcessStatCollector& processes)
    : StatCollector(context, "NetworkStatisticsStatCollector")
    , processes_(processes)
    , format_(statisticsFormatOf(context.host.machine->systemRelease()))
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
    auto channel =
        context().host.networkStatistics->open([this](std::span<const std::uint8_t> messages) { received(messages); });
    if (!channel) {
        return unexpected(channel.error().code, channel.error().message);
    }
    setEnabled(true);
    startedAt_ = context().runtime.monotonicTime();
    channel_ = std::move(*channel);
    for (const std::uint32_t provider : statisticsProviders(format_)) {
        channel_->write(encodeAddAllSources(format_, provider));
    }
    return {};
}

void NetworkStatisticsStatCollector::stop()
{
    channel_.reset();
    connections_ = {};
    places_ = {};
    freeSlots_ = {};
    ended_ = {};
}

void NetworkStatisticsStatCollector::received(std::span<const std::uint8_t> messages)
{
    StatisticsMessages reader(format_, messages);
    while (const auto message = reader.next()) {
        handle(*message);
    }
}

void NetworkStatisticsStatCollector::handle(const StatisticsMessage& message)
{
    if (message.type == StatisticsType::SourceAdded) {
        addSource(message.source);
        return;
    }
    if (message.type == StatisticsType::SourceRemoved) {
        clearConnectionWithRef(message.source);
        return;
    }
    Connection* connection = connectionWithRef(message.source);
    if (!connection) {
        return;
    }
    if (message.type == StatisticsType::SourceDescription && message.description) {
        describe(*connection, *message.description);
    } else if (message.type == StatisticsType::SourceCounts) {
        connection->received = static_cast<double>(message.counts.received);
        connection->sent = static_cast<double>(message.counts.sent);
        connection->lastTime = context().runtime.monotonicTime();
    }
}

void NetworkStatisticsStatCollector::addSource(std::uint64_t ref)
{
    if (ref == 0 || places_.contains(ref)) {
        return;
    }
    std::uint32_t place = 0;
    if (!freeSlots_.empty()) {
        place = freeSlots_.back();
        freeSlots_.pop_back();
    } else if (connections_.size() < mostConnections) {
        place = static_cast<std::uint32_t>(connections_.size());
        connections_.emplace_back();
    } else {
        ++missedSources_;
        return;
    }
    Connection& connection = connections_[place];
    connection = {};
    connection.free = 0;
    connection.ref = ref;
    connection.context = static_cast<std::int32_t>(place) + 1;
    const double now = context().runtime.monotonicTime();
    connection.isNew = now - startedAt_ > listingTime;
    connection.previousTime = connection.isNew ? now : 0;
    places_.emplace(ref, place);
}

NetworkStatisticsStatCollector::Connection* NetworkStatisticsStatCollector::connectionWithRef(std::uint64_t ref)
{
    const auto place = places_.find(ref);
    return place == places_.end() ? nullptr : &connections_[place->second];
}

void NetworkStatisticsStatCollector::describe(Connection& connection, const SourceDescription& description)
{
    if (description.pid < 0) {
        return;
    }
    connection.pid = description.pid;
    connection.provider = static_cast<std::int32_t>(description.provider);
    connection.localPort = description.localPort;
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
    if (connections_[index].pid >= 0 && ended_.size() < mostConnections) {
        ended_.push_back(connections_[index]); // what it carried since the last update is its process's all the same
    }
    places_.erase(connections_[index].ref);
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
    recalculateHighestRef();
    // By number and not by reference: what is asked may be answered at once, and an answer may add or remove sources.
    for (std::size_t index = 0; channel_ && index < connections_.size(); ++index) {
        if (connections_[index].free == 0) {
            updateConnection(connections_[index].ref);
        }
    }
    for (Connection& connection : std::exchange(ended_, {})) {
        account(connection);
    }
    if (updaterFinishBlock()) {
        updaterFinishBlock()(*this);
    }
}

/// Asks how far a source has come, and adds what is known of it by then: an answer may come at once or after this.
void NetworkStatisticsStatCollector::updateConnection(std::uint64_t ref)
{
    Connection asked = *connectionWithRef(ref);
    if (asked.pid < 0 && asked.descriptionTries < mostDescriptionTries) {
        ++connectionWithRef(ref)->descriptionTries;
        ask(StatisticsType::GetDescription, asked);
    }
    ask(StatisticsType::QuerySource, asked);
    if (Connection* connection = connectionWithRef(ref)) {
        account(*connection);
    }
}

/// Bytes whose process is not known yet wait for it.
void NetworkStatisticsStatCollector::account(Connection& connection)
{
    if (connection.pid < 0 || connection.lastTime == 0) {
        return;
    }
    const double elapsed = connection.previousTime > 0 ? connection.lastTime - connection.previousTime : 0;
    updateRates(connection);
    addToProcess(connection, elapsed);
}

void NetworkStatisticsStatCollector::updateRates(Connection& connection)
{
    connection.previousTime = connection.previousTime == 0 ? connection.lastTime : connection.previousTime;
    const double elapsed = connection.lastTime - connection.previousTime;
    // A first reading, unless of a source that is new, and one of a counter that started over say nothing.
    const auto rate = [&](double current, double previous) {
        return elapsed > 0 && (previous > 0 || connection.isNew) && current > previous ? (current - previous) / elapsed
                                                                                       : 0.0;
    };
    connection.downloadRate = rate(connection.received, connection.previousReceived);
    connection.uploadRate = rate(connection.sent, connection.previousSent);
    connection.previousReceived = connection.received;
    connection.previousSent = connection.sent;
    connection.previousTime = connection.lastTime;
}

void NetworkStatisticsStatCollector::ask(StatisticsType type, const Connection& connection)
{
    encodeSourceRequest(format_, type, static_cast<std::uint64_t>(connection.context), connection.ref, request_);
    channel_->write(request_);
}

void NetworkStatisticsStatCollector::addToProcess(const Connection& connection, double elapsed)
{
    if (connection.provider <= 0 || connection.localPort <= 0) {
        return;
    }
    auto* item = processes_.processForPid(connection.pid);
    if (!item) {
        return;
    }
    const double factor = figure_ == Figure::Bytes ? std::max(elapsed, 0.0) : 1.0;
    item->addTraffic(connection.downloadRate * factor, connection.uploadRate * factor);
    item->updatePCapBandwidth(context().runtime.wallTime());
}

} // namespace meridal
