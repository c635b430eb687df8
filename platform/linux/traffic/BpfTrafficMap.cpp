// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/traffic/BpfTrafficMap.h"

#include "platform/linux/kernel/BpfCalls.h"

#include <linux/bpf.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace meridal {

namespace {

constexpr std::size_t bufferSize = 256 << 10; // bytes; a call gives what fits
/// Whole buckets of the hash are given: no one of them may have more entries than this.
constexpr std::size_t leastKeys = 32;
constexpr std::size_t mostKeys = 512;

/// Takes an element out of a hash, with what it was. Linux 5.14.
bool takeFromBpfMap(int map, std::uint64_t key, void* value)
{
    bpf_attr attributes;
    std::memset(&attributes, 0, sizeof attributes);
    attributes.map_fd = static_cast<std::uint32_t>(map);
    attributes.key = bpfAddress(&key);
    attributes.value = bpfAddress(value);
    return bpfCall(BPF_MAP_LOOKUP_AND_DELETE_ELEM, attributes) >= 0;
}

/// A sum that goes up and down, whose parts are not read at one moment.
std::uint64_t notBelowZero(std::uint64_t sum) { return static_cast<std::int64_t>(sum) < 0 ? 0 : sum; }

} // namespace

BpfTrafficMap::BpfTrafficMap(int sums, int people) : map_(sums), people_(people), processors_(possibleProcessors())
{
    const std::size_t keys = std::clamp(bufferSize / (processors_ * sizeof(BpfTraffic)), leastKeys, mostKeys);
    keys_.resize(keys);
    values_ = std::make_unique_for_overwrite<BpfTraffic[]>(keys * processors_);
}

BpfTraffic BpfTrafficMap::sumOf(std::size_t place) const
{
    BpfTraffic sum{};
    for (std::size_t processor = 0; processor < processors_; ++processor) {
        const BpfTraffic& part = values_[place * processors_ + processor];
        for (std::size_t way = 0; way < BPF_TRAFFIC_DIRECTIONS; ++way) {
            sum.bytes[way] += part.bytes[way];
            sum.packets[way] += part.packets[way];
        }
        sum.bare += part.bare;
    }
    return sum;
}

/// Absent for an entry of this very moment, whose owner is not noted yet. Once only: where the kernel had no memory to note it,
/// nobody is waited for.
std::optional<BpfTrafficOwner> BpfTrafficMap::takeOwner(std::uint64_t key)
{
    BpfTrafficOwner owner{};
    const bool isThere = takeFromBpfMap(people_, key, &owner);
    const bool isProcess = (key & BPF_TRAFFIC_PID_MASK) != 0;
    if (isThere || !isProcess || !unowned_.insert(key).second) {
        unowned_.erase(key);
        return owner;
    }
    return std::nullopt;
}

void BpfTrafficMap::note(std::uint64_t key, const BpfTraffic& sums, TrafficReading& into)
{
    if ((key & ~BPF_TRAFFIC_ELSEWHERE) == BPF_TRAFFIC_WAITING) {
        if (key == BPF_TRAFFIC_WAITING) {
            into.waiting.bytesReceived = notBelowZero(sums.bytes[BPF_TRAFFIC_RECEIVED]);
            into.waiting.bytesSent = notBelowZero(sums.bytes[BPF_TRAFFIC_SENT]);
            into.waiting.packetsReceived = notBelowZero(sums.packets[BPF_TRAFFIC_RECEIVED]);
            into.waiting.packetsSent = notBelowZero(sums.packets[BPF_TRAFFIC_SENT]);
            into.waiting.barePackets = notBelowZero(sums.bare);
        }
        return;
    }
    if (!ledger_.knows(key)) {
        const auto owner = takeOwner(key);
        if (!owner) {
            return; // the sums stand; they are told at the next reading
        }
        ledger_.introduce(key, *owner);
    }
    ledger_.note(key, sums, into.counts);
}

void BpfTrafficMap::read(TrafficReading& into)
{
    ledger_.beginReading();
    std::uint32_t position = 0;
    bool isFirst = true;
    long result = 0;
    do {
        bpf_attr attributes;
        std::memset(&attributes, 0, sizeof attributes);
        attributes.batch.map_fd = static_cast<std::uint32_t>(map_);
        attributes.batch.in_batch = isFirst ? 0 : bpfAddress(&position);
        attributes.batch.out_batch = bpfAddress(&position);
        attributes.batch.keys = bpfAddress(keys_.data());
        attributes.batch.values = bpfAddress(values_.get());
        attributes.batch.count = static_cast<std::uint32_t>(keys_.size());
        result = bpfCall(BPF_MAP_LOOKUP_BATCH, attributes);
        isFirst = false;
        if (result < 0 && result != -ENOENT) {
            return; // nothing is lost: the sums stand
        }
        for (std::size_t place = 0; place < attributes.batch.count; ++place) {
            note(keys_[place], sumOf(place), into);
        }
    } while (result == 0); // -ENOENT says that these were the last
    for (const std::uint64_t key : ledger_.idle()) {
        drop(key, into);
    }
}

/// Takes an entry out. It may have moved this very moment: what is taken out is looked at once more.
void BpfTrafficMap::drop(std::uint64_t key, TrafficReading& into)
{
    const bool isTaken = takeFromBpfMap(map_, key, values_.get());
    if (isTaken) {
        note(key, sumOf(0), into);
    }
    if (isTaken || removeFromBpfMap(map_, &key)) {
        ledger_.forget(key);
    }
}

} // namespace meridal
