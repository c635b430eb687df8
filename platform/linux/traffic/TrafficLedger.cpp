// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/traffic/TrafficLedger.h"

#include "base/Rate.h"

#include <cstring>
#include <utility>

namespace meridal {

namespace {

ProcessIdentity identityOf(std::uint64_t key)
{
    return {
        .pid = static_cast<std::int32_t>(key & BPF_TRAFFIC_PID_MASK), .startIdentity = key >> BPF_TRAFFIC_START_SHIFT};
}

} // namespace

void TrafficLedger::beginReading() { ++reading_; }

void TrafficLedger::introduce(std::uint64_t key, const BpfTrafficOwner& owner)
{
    Entry& entry = entries_[key];
    entry.owner = owner;
    entry.moved = reading_;
}

void TrafficLedger::note(std::uint64_t key, const BpfTraffic& sums, std::vector<TrafficCount>& into)
{
    const auto [place, isNew] = entries_.try_emplace(key);
    Entry& entry = place->second;
    TrafficCount count;
    // Entries only grow; one that is smaller is new, and the old one was taken out behind our back.
    count.bytesReceived = growth(sums.bytes[BPF_TRAFFIC_RECEIVED], entry.sums.bytes[BPF_TRAFFIC_RECEIVED]);
    count.bytesSent = growth(sums.bytes[BPF_TRAFFIC_SENT], entry.sums.bytes[BPF_TRAFFIC_SENT]);
    count.packetsReceived = growth(sums.packets[BPF_TRAFFIC_RECEIVED], entry.sums.packets[BPF_TRAFFIC_RECEIVED]);
    count.packetsSent = growth(sums.packets[BPF_TRAFFIC_SENT], entry.sums.packets[BPF_TRAFFIC_SENT]);
    count.barePackets = growth(sums.bare, entry.sums.bare);
    entry.sums = sums;
    // Bytes may come a reading before their packet, or after it.
    if (count.packetsReceived == 0 && count.packetsSent == 0 && count.bytesReceived == 0 && count.bytesSent == 0) {
        entry.moved = isNew ? reading_ : entry.moved;
        return;
    }
    entry.moved = reading_;
    count.process = identityOf(key);
    count.name.assign(entry.owner.name, ::strnlen(entry.owner.name, sizeof entry.owner.name));
    for (std::size_t i = 0; i < count.ancestors.size(); ++i) {
        count.ancestors[i] = identityOf(entry.owner.ancestors[i]);
    }
    count.isElsewhere = (key & BPF_TRAFFIC_ELSEWHERE) != 0;
    into.push_back(std::move(count));
}

const std::vector<std::uint64_t>& TrafficLedger::idle()
{
    idle_.clear();
    const std::uint32_t limit = entries_.size() * 2 > room_ ? 1 : patience;
    for (const auto& [key, entry] : entries_) {
        if ((key & BPF_TRAFFIC_PID_MASK) != 0 && reading_ - entry.moved >= limit) {
            idle_.push_back(key);
        }
    }
    return idle_;
}

} // namespace meridal
