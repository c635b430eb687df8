#include "platform/linux/BpfTrafficMap.h"

#include "platform/linux/BpfCalls.h"

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

} // namespace

BpfTrafficMap::BpfTrafficMap(int map) : map_(map), processors_(possibleProcessors())
{
    const std::size_t keys = std::clamp(bufferSize / (processors_ * sizeof(BpfTraffic)), leastKeys, mostKeys);
    keys_.resize(keys);
    values_.resize(keys * processors_);
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
        sum.parent = std::max(sum.parent, part.parent);
    }
    return sum;
}

void BpfTrafficMap::read(std::vector<TrafficCount>& into)
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
        attributes.batch.values = bpfAddress(values_.data());
        attributes.batch.count = static_cast<std::uint32_t>(keys_.size());
        result = bpfCall(BPF_MAP_LOOKUP_BATCH, attributes);
        isFirst = false;
        if (result < 0 && result != -ENOENT) {
            return; // nothing is lost: the sums stand
        }
        for (std::size_t place = 0; place < attributes.batch.count; ++place) {
            ledger_.note(keys_[place], sumOf(place), into);
        }
    } while (result == 0); // -ENOENT says that these were the last
    for (const std::uint64_t key : ledger_.idle()) {
        drop(key, into);
    }
}

/// Takes an entry out. It may have moved this very moment: what is taken out is looked at once more.
void BpfTrafficMap::drop(std::uint64_t key, std::vector<TrafficCount>& into)
{
    bpf_attr attributes;
    std::memset(&attributes, 0, sizeof attributes);
    attributes.map_fd = static_cast<std::uint32_t>(map_);
    attributes.key = bpfAddress(&key);
    attributes.value = bpfAddress(values_.data());
    const long result = bpfCall(BPF_MAP_LOOKUP_AND_DELETE_ELEM, attributes); // Linux 5.14
    if (result >= 0) {
        ledger_.note(key, sumOf(0), into);
    }
    if (result >= 0 || removeFromBpfMap(map_, &key)) {
        ledger_.forget(key);
    }
}

} // namespace meridal
