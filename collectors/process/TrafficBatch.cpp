// SPDX-License-Identifier: Apache-2.0
#include "collectors/process/TrafficBatch.h"

namespace meridal {

namespace {

std::uint64_t keyOf(const PacketRecord& record)
{
    const auto pid = static_cast<std::uint32_t>(record.pid);
    return std::uint64_t{pid} << 32 | std::uint64_t{record.localPort} << 16 | record.foreignPort;
}

} // namespace

bool PacketBuffer::add(const PacketRecord& record)
{
    const auto [place, isNew] = places_.try_emplace(keyOf(record), static_cast<std::uint32_t>(records_.size()));
    if (!isNew) {
        PacketRecord& same = records_[place->second];
        same.downloadBytes += record.downloadBytes;
        same.uploadBytes += record.uploadBytes;
        same.linkBytes += record.linkBytes;
        return true;
    }
    if (records_.size() == mostRecords) {
        places_.erase(place);
        return false;
    }
    if (records_.size() == records_.capacity()) {
        records_.reserve(records_.size() + step);
    }
    records_.push_back(record);
    return true;
}

void PacketBuffer::clear()
{
    records_.clear();
    places_.clear();
}

void TrafficBatch::add(const PacketRecord& record)
{
    const TrafficShare share{record.downloadBytes, record.uploadBytes, record.linkBytes};
    (packets.add(record) ? processes : unattributed) += share;
}

void TrafficBatch::add(const TrafficBatch& other)
{
    for (const PacketRecord& record : other.packets.records()) {
        add(record);
    }
    kernel += other.kernel;
    unattributed += other.unattributed;
    frames += other.frames;
}

void TrafficBatch::clear()
{
    packets.clear();
    kernel = unattributed = processes = {};
    frames = 0;
}

} // namespace meridal
