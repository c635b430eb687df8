// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/formats/NetworkStatisticsMessages.h"
#include "platform/host/NetworkStatistics.h"

#include <cstdint>
#include <functional>
#include <span>
#include <unordered_map>
#include <vector>

namespace meridal {

/// Our end of the conversation with the kernel's network-statistics control: which sources there are, whose, and how far
/// they came. It knows no socket and no clock; times are s of the clock that cannot step.
class StatisticsSources {
public:
    /// Sends one request. The kernel may answer, by received(), before it returns.
    using Write = std::function<void(std::span<const std::uint8_t> request)>;

    static constexpr int mostDescriptionTries = 10;
    /// s in which the kernel tells of all sources that were there before us; who comes later is new.
    static constexpr double listingTime = 1;

    StatisticsSources(StatisticsFormat format, Write write) : format_(format), write_(std::move(write)) { }

    /// Asks for all sources, those there and those to come.
    void subscribe(double now);
    /// One message or several in a row.
    void received(std::span<const std::uint8_t> messages, double now);
    /// Asks how far each source came, and answers what is known of it by then: an answer may come at once or after this.
    std::span<const CountedConnection> read();

private:
    struct Source {
        CountedConnection connection;
        std::uint64_t context = 0; ///< comes back with what is asked about it
        int descriptionTries = 0;
    };

    void handle(const StatisticsMessage& message, double now);
    void ask(std::uint64_t id);

    const StatisticsFormat format_;
    const Write write_;
    std::unordered_map<std::uint64_t, Source> sources_; ///< by the kernel's number
    std::vector<CountedConnection> ended_;              ///< since the last reading
    std::vector<CountedConnection> rows_;
    std::vector<std::uint64_t> ids_; ///< kept for its memory, as the next
    std::vector<std::uint8_t> request_;
    std::uint64_t lastContext_ = 0;
    double subscribedAt_ = 0;
};

} // namespace meridal
