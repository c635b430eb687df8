// SPDX-License-Identifier: Apache-2.0
#include "platform/formats/PktapHeader.h"

#include "tests/support/FrameBytes.h"

#include <gtest/gtest.h>

namespace meridal::test {
namespace {

constexpr std::uint32_t ethernetLink = 1;

/// The header of so many bytes in front of a frame.
Frame pktap(std::int32_t pid, std::uint32_t flags, std::uint32_t size = 156, std::uint32_t link = ethernetLink,
    unsigned next = 1)
{
    Frame header = joined({little32(size), little32(next), little32(link), Frame(24), little32(flags), Frame(12),
        little32(static_cast<std::uint32_t>(pid))});
    header.resize(size);
    return joined({header, hex("aabbcc")});
}

TEST(PktapHeader, NamesProcessAndDirectionAndIsSkippedByTheLengthInIt)
{
    using enum FrameDirection;
    const std::tuple<Frame, LinkType, std::int32_t, FrameDirection> frames[] = {
        {pktap(42, 2), LinkType::Ethernet, 42, Sent}, {pktap(42, 1), LinkType::Ethernet, 42, Received},
        {pktap(42, 3), LinkType::Ethernet, 42, Received}, {pktap(-1, 2, 160), LinkType::Ethernet, 0, Sent},
        {pktap(42, 2, 156, 12), LinkType::Other, 42, Sent}};
    for (const auto& [bytes, link, pid, direction] : frames) {
        const auto frame = frameBehindPktap(bytes, static_cast<std::uint32_t>(bytes.size()) + 897);
        ASSERT_TRUE(frame && frame->tag);
        EXPECT_EQ(frame->link, link);
        EXPECT_EQ(frame->length, 900U);
        EXPECT_EQ(Frame(frame->bytes.begin(), frame->bytes.end()), hex("aabbcc"));
        EXPECT_EQ(frame->tag->pid, pid);
        EXPECT_EQ(frame->tag->direction, direction);
        for (std::size_t size = 0; size < bytes.size(); ++size) { // it may have been cut anywhere
            const Frame cut(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
            EXPECT_EQ(frameBehindPktap(cut, 1000).has_value(), size >= 56) << size;
        }
    }
}

TEST(PktapHeader, WhatIsNoFrameIsLeftOut)
{
    for (const unsigned next : {0U, 2U}) {
        EXPECT_FALSE(frameBehindPktap(pktap(42, 1, 156, ethernetLink, next), 1000)) << "no frame follows";
    }
    EXPECT_FALSE(frameBehindPktap(pktap(42, 1), 155)) << "a header that is longer than the frame";
    EXPECT_FALSE(frameBehindPktap(joined({little32(55), little32(1), Frame(100)}), 108));
}

} // namespace
} // namespace meridal::test
