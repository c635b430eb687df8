#pragma once

#include "collectors/StatCollector.h"
#include "platform/NetworkStatisticsMessages.h"
#include "platform/host/NetworkStatistics.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <unordered_map>
#include <vector>

namespace meridal {

class ProcessStatCollector;

/// Which processes use the network, without capture: the kernel counts the bytes of every TCP and UDP source, and each
/// update asks it how far they came and adds the difference to the process that has the source. Main queue only.
class NetworkStatisticsStatCollector final : public StatCollector {
public:
    /// What processes get: bytes per second, or, as capture gives them, the bytes of the interval.
    enum class Figure : std::uint8_t { Rate, Bytes };

    /// One source of the kernel's.
    struct Connection {
        std::uint32_t free = 1;   ///< 0 = in use
        std::int32_t context = 0; ///< comes back with what is asked about it
        std::uint64_t ref = 0;    ///< the kernel's number of it
        std::int32_t pid = -1;    ///< negative while it is not known
        std::int32_t descriptionTries = 0;
        std::int32_t provider = 0;  ///< from the description, as the next
        std::int32_t localPort = 0; ///< both are positive in every description of a socket that carries traffic
        double lastTime = 0;        ///< s of the clock that cannot step, of the last counts; 0 = none yet
        double previousTime = 0;
        double received = 0; ///< bytes
        double sent = 0;
        double previousReceived = 0;
        double previousSent = 0;
        double downloadRate = 0; ///< bytes per second
        double uploadRate = 0;
        bool isNew = false; ///< began while we looked, so that its first counts are of this interval
    };

    static constexpr std::size_t mostConnections = 65'536;
    static constexpr int mostDescriptionTries = 10;
    /// s in which the kernel tells of all sources that were there before us; who comes later is new.
    static constexpr double listingTime = 1;

    NetworkStatisticsStatCollector(Context& context, ProcessStatCollector& processes);
    ~NetworkStatisticsStatCollector() override;

    /// The process-wide instance, on Context::shared() and the shared process collector.
    static NetworkStatisticsStatCollector& sharedNetworkStatisticsStatCollector();

    /// Opens the channel and subscribes to all sources. Without a channel there are no figures.
    Result<void> start();
    void stop();
    bool isStarted() const { return channel_ != nullptr; }
    void setFigure(Figure figure) { figure_ = figure; }

    void updateStats() override;

    void clearConnectionWithRef(std::uint64_t ref);
    void clearConnectionAtIndex(std::size_t index);
    void recalculateHighestRef();
    /// Slots up to the highest one in use; free ones are among them.
    std::span<const Connection> connections() const { return connections_; }

    // Of the interface, and called by nothing here
    std::size_t connectionItems() const { return places_.size(); }
    /// Sources that found no free slot.
    std::uint64_t missedSources() const { return missedSources_; }

private:
    void received(std::span<const std::uint8_t> messages);
    void handle(const StatisticsMessage& message);
    void addSource(std::uint64_t ref);
    Connection* connectionWithRef(std::uint64_t ref);
    void describe(Connection& connection, const SourceDescription& description);
    void updateConnection(std::uint64_t ref);
    void account(Connection& connection);
    void updateRates(Connection& connection);
    void ask(StatisticsType type, const Connection& connection);
    void addToProcess(const Connection& connection, double elapsed);

    ProcessStatCollector& processes_;
    const StatisticsFormat format_;
    Figure figure_ = Figure::Rate;
    std::vector<Connection> connections_;
    std::unordered_map<std::uint64_t, std::uint32_t> places_; ///< slot by ref
    std::vector<std::uint32_t> freeSlots_;
    std::vector<std::uint8_t> request_; ///< kept for its memory
    std::vector<Connection> ended_;     ///< since the last update, with bytes that are not accounted for yet
    std::uint64_t missedSources_ = 0;
    double startedAt_ = 0;                                ///< s of the clock that cannot step
    std::unique_ptr<NetworkStatistics::Channel> channel_; ///< last: it calls back until it is gone
};

} // namespace meridal
