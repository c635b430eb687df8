// SPDX-License-Identifier: Apache-2.0
#include "collectors/process/FlowTable.h"
#include "platform/formats/PktapHeader.h"

#include <cstdint>
#include <cstdlib>

namespace {

/// Answers of every kind, by the port.
class Owners final : public meridal::SocketOwners {
public:
    void beginBatch() override { }
    meridal::SocketOwner ownerOf(const meridal::SocketFlow& flow) override
    {
        return {static_cast<meridal::SocketOwner::Kind>(flow.localPort % 5), flow.localPort, flow.foreignPort % 2 == 0};
    }
    bool search() override { return true; }
};

} // namespace

/// The first byte names the link type or the header of a Mac's tap, the second how much longer the frame was on the
/// wire. However it reads, no figure is above the frame's length, and what is counted comes out again.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 2) {
        return 0;
    }
    const std::span<const std::uint8_t> bytes(data + 2, size - 2);
    const auto length = static_cast<std::uint32_t>(bytes.size() + data[1]);
    meridal::CapturedFrame captured{
        .link = static_cast<meridal::LinkType>(data[0] % 7), .bytes = bytes, .length = length};
    if (data[0] % 7 == 6) {
        const auto tapped = meridal::frameBehindPktap(bytes, length);
        if (!tapped) {
            return 0;
        }
        captured = *tapped;
    }
    const auto frame = meridal::decodeFrame(captured);
    if (!frame) {
        return 0;
    }
    constexpr std::uint32_t linkHeader = 14; // that cooked ones stand for
    if (frame->bytes > captured.length + linkHeader || frame->linkBytes > captured.length + linkHeader
        || frame->pid < 0) {
        std::abort();
    }
    meridal::FlowTable table(std::make_unique<Owners>());
    meridal::TrafficBatch batch;
    table.count(*frame);
    table.count(*frame);
    for (const double now : {1.0, 3.0, 5.0, 100.0}) {
        table.settle(now, batch);
    }
    if (table.waiting() != 0 || batch.frames != 2) {
        std::abort();
    }
    return 0;
}
