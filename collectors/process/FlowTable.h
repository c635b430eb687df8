// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collectors/process/FrameDecoder.h"
#include "collectors/process/TrafficBatch.h"
#include "platform/host/PacketTap.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

namespace meridal {

/// Gathers decoded frames by flow and hands each flow's bytes to the process that has it. The owner is asked for once a
/// flow and batch, not once a frame; bytes whose owner is still being looked for wait with their flow. Frames that name
/// their process need no flow. Used on the thread of one capture.
class FlowTable {
public:
    /// Without owners only frames that name their process are attributed.
    explicit FlowTable(std::unique_ptr<SocketOwners> owners);

    void count(const DecodedFrame& frame);
    /// Frames that did not come: nobody's, each with the mean bytes of those that came of late.
    void countLost(std::uint64_t frames);
    /// Ends a batch of frames: moves what was counted to where it belongs. `now`: s of the clock that cannot step.
    void settle(double now, TrafficBatch& into);

    std::size_t flows() const { return flows_.size(); }
    std::size_t waiting() const { return dirty_.size(); } ///< flows with bytes that no owner was found for yet

    /// More flows at one time are counted, and attributed to nobody.
    static constexpr std::size_t mostFlows = 32'768;
    /// s for which bytes wait for their owner.
    static constexpr double patience = 3;
    /// s within which a socket may still come to a process: connections wait in the kernel to be accepted.
    static constexpr double acceptance = 1;
    /// s without a frame after which a flow is forgotten.
    static constexpr double idleTime = 30;

private:
    struct Flow {
        TrafficShare share;     ///< counted, not handed over
        SocketOwner owner = {}; ///< as last found
        double since = 0;       ///< when `share` began to wait
        double born = 0;        ///< when it was first settled; 0 = not yet
        double used = 0;        ///< when it last had frames
        double askAt = 0;       ///< the owner may have changed from then on
        double trust = 0;       ///< s for which the last answer was believed
        bool dirty = false;     ///< is in dirty_
    };
    struct Hash {
        std::size_t operator()(const SocketFlow& flow) const;
    };
    using Flows = std::unordered_map<SocketFlow, Flow, Hash>;
    /// Ports of a packet that comes in fragments, kept for those that follow.
    struct Fragment {
        std::array<std::uint8_t, 16> source = {};
        std::array<std::uint8_t, 16> destination = {};
        std::uint32_t identification = 0;
        std::uint16_t sourcePort = 0;
        std::uint16_t destinationPort = 0;
        std::uint8_t protocol = 0; ///< 0 = free
    };

    void countOneEnd(const DecodedFrame& frame);
    void countFlow(const DecodedFrame& frame, const TrafficShare& share);
    bool findPorts(const DecodedFrame& frame, std::uint16_t& source, std::uint16_t& destination);
    bool settleFlow(const SocketFlow& key, Flow& flow, double now, TrafficBatch& into);
    void ask(const SocketFlow& key, Flow& flow, double now);
    void forgetIdle(double now);

    std::unique_ptr<SocketOwners> owners_;
    TrafficBatch counted_;  ///< what needs no flow
    TrafficShare captured_; ///< of the latest frames, fading
    double capturedFrames_ = 0;
    Flows flows_;
    std::vector<Flows::value_type*> dirty_;
    Flows::value_type* last_ = nullptr; ///< frames of a flow come in trains
    std::array<Fragment, 256> fragments_ = {};
    double sweepAt_ = 0;
};

} // namespace meridal
