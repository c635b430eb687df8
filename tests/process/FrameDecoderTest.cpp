// SPDX-License-Identifier: Apache-2.0
#include "collectors/process/FrameDecoder.h"
#include "tests/support/FrameBytes.h"

#include <gtest/gtest.h>

namespace meridal::test {
namespace {

constexpr std::uint8_t tcp = 6;
constexpr std::uint8_t udp = 17;
constexpr unsigned ip4 = 0x0800;
constexpr unsigned ip6 = 0x86DD;

DecodedFrame decoded(LinkType link, const Frame& bytes, std::size_t wireLength = 0)
{
    for (std::size_t size = 0; size < bytes.size(); ++size) { // it may have been cut anywhere
        const Frame cut(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
        if (const auto frame = decodeFrame(captured(link, cut, bytes.size()))) {
            EXPECT_LE(frame->bytes, bytes.size());
        }
    }
    const auto frame = decodeFrame(captured(link, bytes, wireLength));
    EXPECT_TRUE(frame.has_value());
    return frame.value_or(DecodedFrame{});
}

TEST(FrameDecoder, EveryLinkTypeLeadsToTheSamePacket)
{
    const Frame packet = joined({ipv4(tcp, 1500), ports()});
    const Frame packet6 = joined({ipv6(udp, 1460), ports()});
    struct Case {
        LinkType link;
        Frame bytes;
        std::size_t header;
        bool isIPv6;
    };
    const std::vector<Case> cases = {
        {LinkType::Ethernet, ethernet(ip4, packet), 14, false},
        {LinkType::Ethernet, ethernet(ip6, packet6), 14, true},
        {LinkType::LinuxCooked, joined({hex("0000 0001 0006 020000000001 0000"), big16(ip4), packet}), 16, false},
        {LinkType::LinuxCooked2, cooked2(ip6, 0, packet6), 20, true},
        {LinkType::RawIP, packet, 0, false},
        {LinkType::RawIP, packet6, 0, true},
        {LinkType::Null, joined({hex("02000000"), packet}), 4, false},
        {LinkType::Null, joined({hex("0000001e"), packet6}), 4, true},
    };
    for (const Case& each : cases) {
        const DecodedFrame frame = decoded(each.link, each.bytes, each.header + 1500);
        EXPECT_EQ(frame.bytes, each.isIPv6 ? 1460U : 1500U) << "the length that the IP header tells";
        EXPECT_EQ(frame.protocol, each.isIPv6 ? udp : tcp);
        EXPECT_EQ(frame.ports, FramePorts::There);
        EXPECT_EQ(frame.sourcePort, 5000);
        EXPECT_EQ(frame.destinationPort, 80);
        EXPECT_EQ(frame.source[each.isIPv6 ? 15 : 3], 1);
        EXPECT_EQ(frame.destination[each.isIPv6 ? 15 : 3], 2);
    }
}

TEST(FrameDecoder, CookedFramesTellDirectionInterfaceAndWhatTheInterfaceCounts)
{
    const Frame packet = joined({ipv4(udp, 100), ports()});
    DecodedFrame frame = decoded(LinkType::LinuxCooked2, cooked2(ip4, 4, packet), 120);
    EXPECT_EQ(frame.direction, FrameDirection::Sent);
    EXPECT_EQ(frame.interface, 7U);
    EXPECT_EQ(frame.linkBytes, 114U) << "the Ethernet header that the cooked one stands for";
    for (std::uint8_t type = 0; type <= 3; ++type) { // 3 is for another host, behind a bridge of ours
        frame = decoded(LinkType::LinuxCooked2, cooked2(ip4, type, packet), 120);
        EXPECT_EQ(frame.direction, FrameDirection::Received) << int{type};
    }
}

TEST(FrameDecoder, WhatATapNamesCountsHoweverItIsCut)
{
    const auto frame = decodeFrame(tapped(42, FrameDirection::Sent, 1000));
    EXPECT_TRUE(frame->isTagged && frame->pid == 42 && frame->direction == FrameDirection::Sent);
    EXPECT_EQ(frame->bytes, 1000U);
    for (const LinkType link : {LinkType::Ethernet, LinkType::Other}) { // the other is not looked into
        EXPECT_EQ(decodeFrame({link, {}, 900, FrameTag{42}})->bytes, 900U);
    }
}

TEST(FrameDecoder, TagsAndExtensionHeadersAreStepsOnTheWay)
{
    const Frame packet = joined({ipv4(tcp, 60), ports()});
    DecodedFrame frame = decoded(LinkType::Ethernet, ethernet(0x88A8, joined({hex("0065 8100 0066 0800"), packet})));
    EXPECT_EQ(frame.vlan, 0x65);
    EXPECT_EQ(frame.destinationPort, 80);
    // hop-by-hop, routing of 16 bytes, authentication of 24 bytes, then TCP
    const Frame chain = joined({ipv6(0, 200), hex("2b00 000000000000"), hex("3301 0000000000000000000000000000"),
        hex("0604"), Frame(22), ports()});
    frame = decoded(LinkType::RawIP, chain);
    EXPECT_EQ(frame.protocol, tcp);
    EXPECT_EQ(frame.destinationPort, 80);
    Frame endless = ipv6(60, 1000);
    for (int i = 0; i < 100; ++i) {
        endless = joined({endless, hex("3c00 000000000000")});
    }
    EXPECT_EQ(decoded(LinkType::RawIP, endless).ports, FramePorts::None);
}

/// As Linux 6.1 shows an echo that came in with two tags, the outer one of which it took out.
TEST(FrameDecoder, ATagMayStandBehindACookedHeaderThatTellsOfThePacketWithin)
{
    const Frame cooked = hex("0800 0000 00000005 0001 00 06 6653466f8b900000");
    const Frame packet =
        hex("45000069 f51d0000 400170b0 0a620002 0a620001 000063e5 0a870001 1299026b 00000000 e5240000");
    for (const Frame& tags :
        {Frame(), hex("000a0800"), hex("000a8100 000b0800"), hex("45000800")}) { // also like a header
        const auto length = static_cast<unsigned>(cooked.size() + tags.size() + 105);
        const DecodedFrame frame = decoded(LinkType::LinuxCooked2, joined({cooked, tags, packet}), length);
        EXPECT_EQ(frame.bytes, 105U) << tags.size();
        EXPECT_EQ(frame.protocol, 1);
        EXPECT_EQ(frame.source[3], 2);
        EXPECT_EQ(frame.linkBytes, 14 + tags.size() + 105);
    }
    const Frame packet6 = joined({ipv6(udp, 100), ports()});
    for (const std::size_t padding : {0U, 6U}) {
        EXPECT_EQ(
            decoded(LinkType::LinuxCooked2, cooked2(ip6, 0, joined({hex("000a86dd"), packet6})), 164 + padding).bytes,
            100U);
    }
}

TEST(FrameDecoder, OnlyTheFirstFragmentHasPorts)
{
    EXPECT_EQ(decoded(LinkType::RawIP, joined({ipv4(udp, 1500, 0x2000), ports()})).ports, FramePorts::FirstFragment);
    const DecodedFrame later = decoded(LinkType::RawIP, joined({ipv4(udp, 1500, 0x00B9), ports()}));
    EXPECT_EQ(later.ports, FramePorts::LaterFragment);
    EXPECT_EQ(later.fragment, 0x1234U);
    const Frame first6 = joined({ipv6(44, 1448), hex("1100 0001 0000abcd"), ports()});
    EXPECT_EQ(decoded(LinkType::RawIP, first6).ports, FramePorts::FirstFragment);
    EXPECT_EQ(decoded(LinkType::RawIP, first6).fragment, 0xABCDU);
    const Frame whole6 = joined({ipv6(44, 1448), hex("1100 0000 0000abcd"), ports()});
    EXPECT_EQ(decoded(LinkType::RawIP, whole6).ports, FramePorts::There);
}

TEST(FrameDecoder, TunnelsStayClosed)
{
    const Frame inner = joined({ipv4(tcp, 60), ports()});
    for (const std::uint8_t protocol : std::vector<std::uint8_t>{4, 41, 47, 50}) { // IP in IP, IPv6 in IP, GRE, ESP
        EXPECT_EQ(decoded(LinkType::RawIP, joined({ipv4(protocol, 80), inner})).ports, FramePorts::None);
    }
}

TEST(FrameDecoder, LengthsThatCannotBeTrueAreNotBelieved)
{
    const Frame lying = joined({ipv4(tcp, 65'535), ports()});
    EXPECT_EQ(decoded(LinkType::Ethernet, ethernet(ip4, lying), 60).bytes, 46U);
    const Frame huge = joined({ipv4(tcp, 0), ports()}); // above 64 KiB, or to be cut up by the hardware
    EXPECT_EQ(decoded(LinkType::Ethernet, ethernet(ip4, huge), 100'014).bytes, 100'000U);
    EXPECT_EQ(decoded(LinkType::Ethernet, ethernet(ip4, joined({ipv4(tcp, 40), Frame(20)}))).bytes, 40U) << "padding";
    EXPECT_EQ(decoded(LinkType::Ethernet, ethernet(0x0806, Frame(46))).bytes, 60U) << "what is no IP counts whole";
}

} // namespace
} // namespace meridal::test
