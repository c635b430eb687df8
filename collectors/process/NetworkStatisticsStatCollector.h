// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collectors/StatCollector.h"
#include "collectors/process/TrafficBatch.h"
#include "platform/host/NetworkStatistics.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
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
        std::uint32_t free = 1; ///< 0 = in use
        CountedConnection latest = {};
        std::optional<double> previousTime =
            std::nullopt;                   ///< s of the clock that cannot step; absent before the first counts
        std::uint64_t previousReceived = 0; ///< bytes
        std::uint64_t previousSent = 0;
    };

    static constexpr std::size_t mostConnections = 65'536;

    NetworkStatisticsStatCollector(Context& context, ProcessStatCollector& processes);
    ~NetworkStatisticsStatCollector() override;

    /// The process-wide instance, on Context::shared() and the shared process collector.
    static NetworkStatisticsStatCollector& sharedNetworkStatisticsStatCollector();

    /// Has the kernel count all sources. Where it does not, there are no figures.
    Result<void> start();
    void stop();
    bool isStarted() const { return counting_ != nullptr; }
    void setFigure(Figure figure) { figure_ = figure; }

    void updateStats() override;
    /// Where the bytes of the latest update went: payload, of processes and of those that are not in the table.
    const TrafficAccount& latest() const { return latest_; }

    void clearConnectionWithRef(std::uint64_t ref);
    void clearConnectionAtIndex(std::size_t index);
    void recalculateHighestRef();
    /// Slots up to the highest one in use; free ones are among them.
    std::span<const Connection> connections() const { return connections_; }

    // Of the interface, and called by nothing here
    std::size_t connectionItems() const { return places_.size(); }

private:
    void updateConnection(const CountedConnection& counted);
    Connection* connectionWithRef(std::uint64_t ref);
    Connection* addConnection(const CountedConnection& counted);
    void addToProcess(Connection& connection);

    ProcessStatCollector& processes_;
    Figure figure_ = Figure::Rate;
    std::vector<Connection> connections_;
    std::unordered_map<std::uint64_t, std::uint32_t> places_; ///< slot by ref
    std::vector<std::uint32_t> freeSlots_;
    TrafficAccount latest_;
    double updatedAt_ = 0; ///< s of the clock that cannot step, or when it was started
    std::unique_ptr<NetworkStatistics::Counting> counting_;
};

} // namespace meridal
