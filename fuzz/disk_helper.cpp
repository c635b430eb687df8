// SPDX-License-Identifier: Apache-2.0
// What meridald and meridal-disks say to each other. The first byte chooses the end that is lied to, the second makes a
// request for the answer to fit; with bit 7 of the first the numbers that every message begins with are put right.

#include "platform/linux/disks/DiskMessages.h"
#include "platform/linux/disks/DiskServer.h"

#include <algorithm>
#include <cstdlib>
#include <vector>

namespace {

using namespace meridal;

void require(bool holds)
{
    if (!holds) {
        std::abort();
    }
}

void beTheProgram(std::span<const std::uint8_t> bytes)
{
    const auto request = decodeDiskRequest(bytes);
    if (!request) {
        return;
    }
    const DiskRequestBytes again = encode(*request);
    require(std::equal(again.begin(), again.end(), bytes.begin(), bytes.end()));
    DiskServer server("/nonexistent"); // has no disks, so it can ask none
    const DiskReply reply = server.answer(*request);
    require(!reply.page && (request->verb == DiskVerb::List || reply.error != 0));
    require(decodeDiskReply(encode(reply, *request), *request).has_value());
}

void beTheDaemon(const DiskRequest& request, std::span<const std::uint8_t> bytes)
{
    const auto reply = decodeDiskReply(bytes, request);
    if (!reply) {
        return;
    }
    require(reply->error >= 0 && reply->count <= mostDisks && reply->path.size() < sizeof(SMARTPage));
    require(!reply->page || reply->path.empty());
    const auto again = decodeDiskReply(encode(*reply, request), request);
    require(again && again->page == reply->page && again->path == reply->path && again->error == reply->error);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    constexpr std::size_t head = 2;
    constexpr std::uint8_t mends = 0x80;
    if (size < head) {
        return 0;
    }
    const DiskRequest request{.verb = static_cast<DiskVerb>(1 + data[1] % 4), .disk = data[1]};
    std::vector<std::uint8_t> bytes(data + head, data + size);
    const auto mend = [&](const auto& right, std::size_t count) {
        if ((data[0] & mends) != 0 && bytes.size() >= count) {
            std::copy_n(right.begin(), count, bytes.begin());
            bytes.resize(right.size());
        }
    };
    if ((data[0] & 1U) == 0) {
        mend(encode(request), sizeof(std::uint32_t));
        beTheProgram(bytes);
    } else {
        mend(encode(DiskReply{}, request), 3 * sizeof(std::uint32_t));
        beTheDaemon(request, bytes);
    }
    return 0;
}
