#include "platform/formats/SMCDataTypes.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

namespace meridal {
namespace {

constexpr auto own = SMCOrigin::Own;
constexpr auto emulated = SMCOrigin::Emulated;

SMCKeyValue valueOf(const std::string& type, const std::vector<std::uint8_t>& bytes)
{
    SMCKeyValue value;
    value.dataSize = static_cast<std::uint32_t>(bytes.size());
    std::copy_n(type.begin(), std::min<std::size_t>(type.size(), 4), value.dataType.begin());
    std::copy(bytes.begin(), bytes.end(), value.bytes.begin());
    return value;
}

float convert(const std::string& type, const std::vector<std::uint8_t>& bytes, SMCOrigin origin = own)
{
    return convertSMCData(valueOf(type, bytes), origin);
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

TEST(SMCDataTypes, Integers)
{
    EXPECT_EQ(convert("ui32", {0xFF, 0xFF, 0xFF, 0xFE}), 4294967294.0F);
    EXPECT_EQ(convert("ui16", {0xFF, 0x01}), 65281);
    EXPECT_EQ(convert("ui8 ", {200}), 200);
    EXPECT_EQ(convert("flag", {1}), 1);
    EXPECT_EQ(convert("si8 ", {0xFF}), 255);
    EXPECT_EQ(convert("si16", {0xFF, 0x38}), 65336);
    EXPECT_EQ(convert("si8 ", {0xFF}, emulated), 1);
    EXPECT_EQ(convert("si8 ", {0x80}, emulated), 128);
    EXPECT_EQ(convert("si8 ", {0x7F}, emulated), 127);
    EXPECT_EQ(convert("si16", {0xFF, 0x38}, emulated), 200);
    EXPECT_EQ(convert("si32", {0xFF, 0xFF, 0xFF, 0x38}, emulated), 200);
    EXPECT_EQ(convert("si32", {0x80, 0, 0, 0}, emulated), 2147483648.0F);
}

TEST(SMCDataTypes, EverythingElseIsUnknown)
{
    for (const char* type : {"", "flt", "FLT ", "ch8*", "{jst", "ui64", "si6 ", "hex_", "fla "}) {
        EXPECT_EQ(convert(type, {1, 2, 3, 4}), -1) << type;
    }
}

RC_GTEST_PROP(SMCDataTypes, FloatsAreTakenAsTheyAre, (float value))
{
    SMCKeyValue data = valueOf("flt ", {0, 0, 0, 0});
    std::memcpy(data.bytes.data(), &value, sizeof value);
    const float back = convertSMCData(data, own);
    RC_ASSERT(std::memcmp(&back, &value, sizeof value) == 0);
}

} // namespace
} // namespace meridal
