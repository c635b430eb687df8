// SPDX-License-Identifier: Apache-2.0
#include "platform/formats/SMCDataTypes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <tuple>
#include <vector>

namespace meridal {
namespace {

constexpr auto own = SMCOrigin::Own;
constexpr auto emulated = SMCOrigin::Emulated;

float convert(const std::string& type, const std::vector<std::uint8_t>& bytes, SMCOrigin origin = own)
{
    SMCKeyValue value;
    value.dataSize = static_cast<std::uint32_t>(bytes.size());
    std::copy_n(type.begin(), std::min<std::size_t>(type.size(), 4), value.dataType.begin());
    std::copy(bytes.begin(), bytes.end(), value.bytes.begin());
    return convertSMCData(value, origin);
}

TEST(SMCDataTypes, FixedPointDividesByItsFractionBits)
{
    const std::string digits = "0123456789abcdef";
    for (unsigned fraction = 1; fraction < 16; ++fraction) {
        const auto divisor = static_cast<float>(1U << fraction);
        const std::string isSigned = {'s', 'p', digits[15 - fraction], digits[fraction]};
        const std::string isUnsigned = {'f', 'p', digits[16 - fraction], digits[fraction]};
        EXPECT_EQ(convert(isSigned, {0xC1, 0x40}), -16064 / divisor) << isSigned;
        EXPECT_EQ(convert(isUnsigned, {0xC1, 0x40}), 49472 / divisor) << isUnsigned;
    }
    EXPECT_EQ(convert("fpe2", {0x12, 0xC0}), 1200);
    for (const char* odd : {"sp00", "spxy", "sp88", "spf0", "sp7G", "spE1", "fp78", "fp10", "fp\xFFz"}) {
        EXPECT_EQ(convert(odd, {0x01, 0x02}), 258) << odd;
    }
}

TEST(SMCDataTypes, MarkersAreWholeNegativeDegrees)
{
    for (int high = 128; high <= 132; ++high) {
        const auto byte = static_cast<std::uint8_t>(high);
        const auto marker = static_cast<float>(high - 256);
        for (const char* type : {"sp78", "sp1e", "fpe2", "fp00"}) {
            EXPECT_EQ(convert(type, {byte, 0}), marker) << type;
        }
        EXPECT_EQ(convert("fpe2", {byte, 0}, emulated), marker);
        EXPECT_EQ(convert("sp4b", {byte, 0}, emulated), static_cast<float>((high - 256) * 256) / 2048)
            << "an emulated SMC means what it says in its two bytes";
        EXPECT_EQ(convert("sp4b", {byte, 0, 0}, emulated), marker);
    }
    EXPECT_EQ(convert("fpe2", {0x80, 0x01}), 8192.25F);
    EXPECT_EQ(convert("fpe2", {133, 0}), 8512);
}

TEST(SMCDataTypes, IntegersFloatsAndWhatIsUnknown)
{
    const std::tuple<const char*, std::vector<std::uint8_t>, float, float> cases[] = {
        {"ui32", {0xFF, 0xFF, 0xFF, 0xFE}, 4294967294.0F, 4294967294.0F}, {"ui16", {0xFF, 0x01}, 65281, 65281},
        {"flt ", {0x00, 0x10, 0xFA, 0x44}, 2000.5F, 2000.5F}, {"ui8 ", {200}, 200, 200}, {"flag", {1}, 1, 1},
        {"si8 ", {0xFF}, 255, 1}, {"si8 ", {0x80}, 128, 128}, {"si8 ", {0x7F}, 127, 127},
        {"si16", {0xFF, 0x38}, 65336, 200}, {"si32", {0xFF, 0xFF, 0xFF, 0x38}, 4294967096.0F, 200},
        {"si32", {0x80, 0, 0, 0}, 2147483648.0F, 2147483648.0F}};
    for (const auto& [type, bytes, ofItsOwn, ofAnEmulated] : cases) {
        EXPECT_EQ(convert(type, bytes), ofItsOwn) << type;
        EXPECT_EQ(convert(type, bytes, emulated), ofAnEmulated) << type;
    }
    for (const char* type : {"", "flt", "FLT ", "ch8*", "{jst", "ui64", "si6 ", "hex_", "fla "}) {
        EXPECT_EQ(convert(type, {1, 2, 3, 4}), -1) << type;
    }
}

} // namespace
} // namespace meridal
