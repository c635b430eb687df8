// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/disks/AtaPassThrough.h"

#include <gtest/gtest.h>

#include <tuple>
#include <vector>

namespace meridal::test {
namespace {

TEST(AtaPassThrough, CommandsAreLaidOutAsSatHasThem)
{
    const AtaCommand read{
        .command = 0xB0, .features = 0xD0, .count = 1, .lbaMid = 0x4F, .lbaHigh = 0xC2, .readsSector = true};
    const auto sixteen = passThrough(read, PassThroughSize::Sixteen);
    EXPECT_EQ(sixteen.cdbLength, 16U);
    EXPECT_EQ(sixteen.dataLength, 512U);
    EXPECT_EQ(sixteen.cdb,
        (std::array<std::uint8_t, 16>{0x85, 0x08, 0x0E, 0, 0xD0, 0, 1, 0, 0, 0, 0x4F, 0, 0xC2, 0, 0xB0, 0}));
    const auto twelve = passThrough({.command = 0xE5, .wantsRegisters = true}, PassThroughSize::Twelve);
    EXPECT_EQ(twelve.cdbLength, 12U);
    EXPECT_EQ(twelve.dataLength, 0U);
    EXPECT_EQ(twelve.cdb, (std::array<std::uint8_t, 16>{0xA1, 0x06, 0x20, 0, 0, 0, 0, 0, 0, 0xE5, 0, 0}));
}

TEST(AtaPassThrough, RegistersAreFoundInBothKindsOfSense)
{
    const std::vector<std::uint8_t> descriptor{
        0x72, 0x01, 0, 0x1D, 0, 0, 0, 14, 0x09, 0x0C, 0, 0, 0, 0xFF, 0, 0, 0, 0xF4, 0, 0x2C, 0, 0x50};
    const auto found = registersInSense(descriptor);
    ASSERT_TRUE(found);
    EXPECT_EQ(
        std::tuple(found->count, found->lbaMid, found->lbaHigh, found->status), std::tuple(0xFF, 0xF4, 0x2C, 0x50));
    for (std::size_t size = 0; size < descriptor.size(); ++size) {
        EXPECT_FALSE(registersInSense(std::span(descriptor).first(size))) << "cut after " << size;
    }
    std::vector<std::uint8_t> fixed{0x70, 0, 0x01, 0x00, 0x50, 0, 0x80, 10, 0, 0, 0x4F, 0xC2, 0x00, 0x1D, 0, 0, 0, 0};
    EXPECT_EQ(registersInSense(fixed)->count, 0x80);
    EXPECT_EQ(registersInSense(fixed)->lbaHigh, 0xC2);
    fixed[13] = 0;
    EXPECT_FALSE(registersInSense(fixed)) << "these fields are something else then";
}

TEST(AtaPassThrough, ARefusalIsToldFromAFailure)
{
    const std::vector<std::uint8_t> invalid{0x70, 0, 0x05, 0, 0, 0, 0, 10, 0, 0, 0, 0, 0x20, 0x00};
    const std::vector<std::uint8_t> medium{0x70, 0, 0x03, 0, 0, 0, 0, 10, 0, 0, 0, 0, 0x11, 0x00};
    EXPECT_TRUE(refusesCommand(invalid));
    EXPECT_FALSE(refusesCommand(medium));
    EXPECT_FALSE(refusesCommand({}));
}

} // namespace
} // namespace meridal::test
