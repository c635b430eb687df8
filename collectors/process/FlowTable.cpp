// SPDX-License-Identifier: Apache-2.0
#include "collectors/process/FlowTable.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace meridal {

namespace {

constexpr double sweepInterval = 5; ///< s
/// s for which an owner is believed: less at first, when a socket is handed to a child, more with every time it held.
constexpr double firstTrust = 1;
constexpr double longestTrust = 60;
constexpr double absenceTrust = 2; ///< "no socket" may be a listing that came too early, or a port that is taken later

std::uint64_t word(const std::array<std::uint8_t, 16>& bytes, std::size_t at)
{
    std::uint64_t value = 0;
    std::memcpy(&value, bytes.data() + at, sizeof(value));
    return value;
}

std::uint64_t mixed(std::uint64_t value)
{
    value *= 0x9E3779B97F4A7C15U;
    return value ^ value >> 29;
}

TrafficShare shareOf(const DecodedFrame& frame)
{
    TrafficShare share{.linkBytes = static_cast<double>(frame.linkBytes)};
    (frame.direction == FrameDirection::Sent ? share.upload : share.download) = frame.bytes;
    return share;
}

/// ICMP and tunnels: whoever caused them, the kernel speaks them. They are flows because of the interfaces they cross.
bool isPortless(const SocketFlow& flow) { return flow.localPort == 0 && flow.foreignPort == 0; }

PacketRecord recordOf(std::int32_t pid, const TrafficShare& share)
{
    PacketRecord record;
    record.pid = pid;
    record.downloadBytes = share.download;
    record.uploadBytes = share.upload;
    record.linkBytes = share.linkBytes;
    return record;
}

} // namespace

std::size_t FlowTable::Hash::operator()(const SocketFlow& flow) const
{
    const std::uint64_t ports = std::uint64_t{flow.localPort} << 40 | std::uint64_t{flow.foreignPort} << 24
        | std::uint64_t{flow.protocol} << 16 | (flow.interface & 0xFFFF);
    return mixed(mixed(mixed(ports) + word(flow.foreign, 0) + word(flow.foreign, 8)) + word(flow.local, 0)
        + word(flow.local, 8));
}

FlowTable::FlowTable(std::unique_ptr<SocketOwners> owners) : owners_(std::move(owners)) { }

void FlowTable::count(const DecodedFrame& frame)
{
    ++counted_.frames;
    captured_ += shareOf(frame);
    ++capturedFrames_;
    if (!frame.isLoopback) {
        countOneEnd(frame);
    } else if (frame.direction == FrameDirection::Received) {
        // Both ends are here, and only some taps show the frame leaving as well: what arrives stands for both.
        countOneEnd(frame);
        DecodedFrame leaving = frame;
        leaving.direction = FrameDirection::Sent;
        countOneEnd(leaving);
    }
}

void FlowTable::countLost(std::uint64_t frames)
{
    if (frames == 0 || capturedFrames_ == 0) {
        return;
    }
    const double times = static_cast<double>(frames) / capturedFrames_;
    counted_.unattributed += {captured_.download * times, captured_.upload * times, captured_.linkBytes * times};
}

void FlowTable::countOneEnd(const DecodedFrame& frame)
{
    const TrafficShare share = shareOf(frame);
    if (frame.isTagged) {
        counted_.add(recordOf(frame.pid, share));
    } else if (!frame.isIP || (frame.ports == FramePorts::None && !owners_)) {
        counted_.kernel += share; // whoever caused it, the kernel speaks it
    } else if (!owners_) {
        counted_.unattributed += share;
    } else {
        countFlow(frame, share);
    }
}

void FlowTable::countFlow(const DecodedFrame& frame, const TrafficShare& share)
{
    std::uint16_t source = 0;
    std::uint16_t destination = 0;
    if (frame.ports != FramePorts::None && !findPorts(frame, source, destination)) {
        counted_.unattributed += share;
        return;
    }
    SocketFlow key;
    const bool isSent = frame.direction == FrameDirection::Sent;
    key.local = isSent ? frame.source : frame.destination;
    key.foreign = isSent ? frame.destination : frame.source;
    key.localPort = isSent ? source : destination;
    key.foreignPort = isSent ? destination : source;
    key.interface = frame.interface;
    key.protocol = frame.protocol;
    key.isIPv6 = frame.isIPv6;
    if (!last_ || !(last_->first == key)) {
        const auto found = flows_.find(key);
        if (found == flows_.end() && flows_.size() >= mostFlows) {
            (isPortless(key) ? counted_.kernel : counted_.unattributed) += share;
            return;
        }
        last_ = found == flows_.end() ? &*flows_.try_emplace(key).first : &*found;
    }
    Flow& flow = last_->second;
    flow.share += share;
    if (!flow.dirty) {
        flow.dirty = true;
        dirty_.push_back(last_);
    }
}

bool FlowTable::findPorts(const DecodedFrame& frame, std::uint16_t& source, std::uint16_t& destination)
{
    if (frame.ports != FramePorts::There) {
        const std::uint64_t place = mixed(word(frame.source, 0) + mixed(word(frame.destination, 0) + frame.fragment));
        Fragment& kept = fragments_[place % fragments_.size()];
        if (frame.ports == FramePorts::FirstFragment) {
            kept = {frame.source, frame.destination, frame.fragment, frame.sourcePort, frame.destinationPort,
                frame.protocol};
        } else if (kept.protocol != frame.protocol || kept.identification != frame.fragment
            || kept.source != frame.source || kept.destination != frame.destination) {
            return false;
        }
        source = kept.sourcePort;
        destination = kept.destinationPort;
        return true;
    }
    source = frame.sourcePort;
    destination = frame.destinationPort;
    return true;
}

void FlowTable::settle(double now, TrafficBatch& into)
{
    if (owners_) {
        owners_->beginBatch();
    }
    const auto isSettled = [&](Flows::value_type* entry) {
        entry->second.dirty = !settleFlow(entry->first, entry->second, now, into);
        return !entry->second.dirty;
    };
    std::erase_if(dirty_, isSettled);
    if (!dirty_.empty() && owners_->search()) { // at once: a short-lived process may be gone at the next batch
        std::erase_if(dirty_, isSettled);
    }
    if (counted_.frames > 0) {
        constexpr double fading = 0.5; // a batch: the mean is that of the last few
        captured_ = {captured_.download * fading, captured_.upload * fading, captured_.linkBytes * fading};
        capturedFrames_ *= fading;
    }
    into.add(counted_);
    counted_.clear();
    if (now >= sweepAt_ || flows_.size() >= mostFlows) {
        sweepAt_ = now + sweepInterval;
        forgetIdle(now);
    }
}

/// Hands over what a flow has. False while its owner is being looked for.
bool FlowTable::settleFlow(const SocketFlow& key, Flow& flow, double now, TrafficBatch& into)
{
    flow.born = flow.born == 0 ? now : flow.born;
    flow.since = flow.since == 0 ? now : flow.since;
    flow.used = now;
    if (now >= flow.askAt) {
        ask(key, flow, now);
    }
    using enum SocketOwner::Kind;
    const bool isLate = now - flow.since >= patience;
    switch (flow.owner.kind) {
    case Process:
        if (!flow.owner.isCertain && now - flow.born < acceptance) {
            return false;
        }
        into.add(recordOf(flow.owner.pid, flow.share));
        break;
    case Kernel:
        if (!isPortless(key) && now - flow.born < acceptance) {
            return false;
        }
        into.kernel += flow.share;
        break;
    case Elsewhere:
        break;
    case Pending:
        if (!isLate) {
            return false;
        }
        [[fallthrough]];
    case None:
        into.unattributed += flow.share;
        break;
    }
    flow.share = {};
    flow.since = 0;
    return true;
}

void FlowTable::ask(const SocketFlow& key, Flow& flow, double now)
{
    using enum SocketOwner::Kind;
    const SocketOwner found = owners_->ownerOf(key);
    const bool wasKnown = flow.owner.kind == Process;
    const bool mayComeToSomebody = (found.kind == Kernel && !isPortless(key)) || !found.isCertain;
    if (found.kind == Pending || (mayComeToSomebody && now - flow.born < acceptance)) {
        if (!wasKnown || !flow.owner.isCertain) {
            flow.owner = found;
        }
        return; // again with the next batch
    }
    const double longest = found.kind == None ? absenceTrust : longestTrust;
    flow.trust = flow.owner == found ? std::min(std::max(flow.trust * 4, firstTrust), longest) : firstTrust;
    flow.askAt = now + flow.trust;
    if (wasKnown && (found.kind == None || found.kind == Kernel || !found.isCertain)) {
        return; // closed: the last frames of a connection are still its process's
    }
    flow.owner = found;
}

void FlowTable::forgetIdle(double now)
{
    const double limit = flows_.size() >= mostFlows ? 0.5 : idleTime; // under a flood of flows, make room
    std::erase_if(flows_, [&](const auto& entry) { return !entry.second.dirty && now - entry.second.used >= limit; });
    last_ = nullptr;
}

} // namespace meridal
