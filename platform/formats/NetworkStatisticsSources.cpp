// SPDX-License-Identifier: Apache-2.0
#include "platform/formats/NetworkStatisticsSources.h"

#include <utility>

namespace meridal {

void StatisticsSources::subscribe(double now)
{
    subscribedAt_ = now;
    for (const std::uint32_t provider : statisticsProviders(format_)) {
        write_(encodeAddAllSources(format_, provider));
    }
}

void StatisticsSources::received(std::span<const std::uint8_t> messages, double now)
{
    StatisticsMessages reader(format_, messages);
    while (const auto message = reader.next()) {
        handle(*message, now);
    }
}

void StatisticsSources::handle(const StatisticsMessage& message, double now)
{
    if (message.type == StatisticsType::SourceAdded) {
        const bool isNew = now - subscribedAt_ > listingTime;
        if (message.source != 0) {
            sources_.try_emplace(message.source,
                Source{.connection = {.id = message.source, .isNew = isNew}, .context = ++lastContext_});
        }
        return;
    }
    const auto found = sources_.find(message.source);
    if (found == sources_.end()) {
        return;
    }
    CountedConnection& connection = found->second.connection;
    if (message.type == StatisticsType::SourceRemoved) {
        connection.hasEnded = true;
        ended_.push_back(connection); // what it carried since the last reading is its process's all the same
        sources_.erase(found);
    } else if (message.type == StatisticsType::SourceCounts) {
        connection.bytesReceived = message.counts.received;
        connection.bytesSent = message.counts.sent;
        connection.countedAt = now;
    } else if (message.description && message.description->pid >= 0) {
        connection.pid = message.description->pid;
        connection.protocol = message.description->protocol;
        connection.localPort = message.description->localPort;
    }
}

std::span<const CountedConnection> StatisticsSources::read()
{
    // By number: an answer, which may come at once, may add or remove sources.
    ids_.clear();
    for (const auto& entry : sources_) {
        ids_.push_back(entry.first);
    }
    for (const std::uint64_t id : ids_) {
        ask(id);
    }
    rows_ = std::exchange(ended_, {});
    for (const auto& entry : sources_) {
        rows_.push_back(entry.second.connection);
    }
    return rows_;
}

void StatisticsSources::ask(std::uint64_t id)
{
    const auto found = sources_.find(id);
    if (found == sources_.end()) {
        return;
    }
    const std::uint64_t context = found->second.context;
    if (!found->second.connection.pid && found->second.descriptionTries < mostDescriptionTries) {
        ++found->second.descriptionTries;
        encodeSourceRequest(format_, StatisticsType::GetDescription, context, id, request_);
        write_(request_);
    }
    encodeSourceRequest(format_, StatisticsType::QuerySource, context, id, request_);
    write_(request_);
}

} // namespace meridal
