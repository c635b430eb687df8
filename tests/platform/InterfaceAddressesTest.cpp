// SPDX-License-Identifier: Apache-2.0
#include "platform/formats/InterfaceAddresses.h"

#include "tests/support/FrameBytes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace meridal::test {
namespace {

TEST(InterfaceAddresses, MasksAreCutAfterTheirLastBitAndScopesLeftOut)
{
    const auto bits = [](const char* address, const char* mask) {
        const auto found = interfaceAddressOf(hex(address), hex(mask));
        return found ? found->prefixLength : -1;
    };
    const char* four = "10020000c0a8016a0000000000000000";
    EXPECT_EQ(bits(four, "07020000 ffffff"), 24) << "its family is whatever it is";
    EXPECT_EQ(bits(four, "06000000fff0"), 12);
    EXPECT_EQ(bits(four, "10020000ffffffffffffffff00000000"), 32) << "no more than the address has";
    EXPECT_EQ(bits(four, "00"), 0);
    EXPECT_EQ(bits(four, ""), 0);
    const auto home = interfaceAddressOf(hex(four), {});
    EXPECT_EQ(home->family, InterfaceAddress::Family::IPv4);
    EXPECT_EQ(Frame(home->bytes.begin(), home->bytes.begin() + 4), hex("c0a8016a"));

    const char* local = "1c1e000000000000fe80000b0000000010d9bcb0601f16fa00000000";
    EXPECT_EQ(bits(local, "101e000000000000ffffffffffffffff"), 64);
    const auto found = interfaceAddressOf(hex(local), {});
    EXPECT_EQ(Frame(found->bytes.begin(), found->bytes.end()), hex("fe8000000000000010d9bcb0601f16fa"));
    const auto global = interfaceAddressOf(hex("1c1e000000000000260200ae15a480010424837a8706095000000000"), {});
    EXPECT_EQ(global->bytes[3], 0xae) << "it has no scope";

    for (const char* other : {"", "10", "1012040018", "1c0a000000000000fe80"}) {
        EXPECT_EQ(bits(other, ""), -1) << other;
    }
    EXPECT_EQ(interfaceAddressOf(hex("06020000c0a8"), {})->bytes[1], 0xa8) << "cut short";
}

TEST(InterfaceAddresses, ALinkTellsItsNumberAndSixBytesBehindItsName)
{
    const Frame wifi = hex("14120b01 06 03 06 00 656e30 8c2daa3303e9 000000");
    EXPECT_EQ(linkAddressOf(wifi), (LinkAddress{.index = 267, .hardware = {{0x8c, 0x2d, 0xaa, 0x33, 0x03, 0xe9}}}));
    EXPECT_EQ(linkAddressOf(hex("14120100 18 03 00 00 6c6f30 000000000000000000")),
        (LinkAddress{.index = 1, .isLoopback = true}));
    EXPECT_FALSE(linkAddressOf(hex("14120200 90 03 08 00 667730 a82066fffe44f122 00")).hardware) << "eight bytes";
    for (std::size_t size = 0; size < 17; ++size) {
        EXPECT_FALSE(linkAddressOf(Frame(wifi.begin(), wifi.begin() + static_cast<std::ptrdiff_t>(size))).hardware);
    }
    Frame odd = wifi;
    odd[5] = 0xFF;
    EXPECT_FALSE(linkAddressOf(odd).hardware) << "a name longer than all of it";
}

} // namespace
} // namespace meridal::test
