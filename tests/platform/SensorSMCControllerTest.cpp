// SPDX-License-Identifier: Apache-2.0
#include "platform/formats/SensorSMCController.h"

#include "base/Log.h"
#include "base/Value.h"
#include "tests/support/FakeSMC.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>

namespace meridal {
namespace {

using Bytes = std::array<std::uint8_t, 80>;

Bytes bytesOf(const SMCParamRecord& record)
{
    Bytes bytes{};
    std::memcpy(bytes.data(), &record, sizeof record);
    return bytes;
}

/// 80 zeros with some bytes set.
Bytes record(std::initializer_list<std::pair<std::size_t, std::vector<std::uint8_t>>> parts)
{
    Bytes bytes{};
    for (const auto& [offset, part] : parts) {
        std::copy(part.begin(), part.end(), bytes.begin() + static_cast<std::ptrdiff_t>(offset));
    }
    return bytes;
}

class SensorSMCControllerTest : public testing::Test {
protected:
    Log log;
    test::FakeSMCService smc;
    SensorSMCController controller{smc, &log};

    SMCKeyValue read(const std::string& key)
    {
        SMCKeyValue value;
        EXPECT_EQ(controller.dataForKey(key, value), 0);
        return value;
    }
    std::vector<std::uint8_t> written(const std::string& key) const { return smc.keys.at(key).bytes; }
};

TEST_F(SensorSMCControllerTest, TheRecordsThatGoToTheDriverAreTheseBytes)
{
    smc.set("TC0P", "sp78", {0x2A, 0x80});
    smc.set("F0Mn", "fpe2", {0, 0});
    controller.open();
    read("TC0P");
    controller.writeValue(1200, "F0Mn");
    ASSERT_EQ(smc.sent.size(), 4U);
    // Little-endian numbers; the key's first character is in the high byte.
    EXPECT_EQ(bytesOf(smc.sent[0]), record({{0, {'P', '0', 'C', 'T'}}, {28, {2}}, {42, {9}}}));
    EXPECT_EQ(bytesOf(smc.sent[1]), record({{0, {'P', '0', 'C', 'T'}}, {28, {2}}, {42, {5}}}));
    EXPECT_EQ(bytesOf(smc.sent[2]), record({{0, {'n', 'M', '0', 'F'}}, {42, {9}}}));
    EXPECT_EQ(bytesOf(smc.sent[3]), record({{0, {'n', 'M', '0', 'F'}}, {28, {2}}, {42, {6}}, {48, {0x12, 0xC0}}}));
}

TEST_F(SensorSMCControllerTest, AnAbsentKeyIsRemembered)
{
    controller.open();
    EXPECT_EQ(read("TXXX"), SMCKeyValue());
    EXPECT_EQ(read("TXXX"), SMCKeyValue());
    EXPECT_EQ(smc.count(SMCCommand::ReadKeyInfo), 1);
    EXPECT_EQ(controller.keyCache().at("TXXX"), (SensorSMCController::KeyInfo{std::string(4, '\0'), 0}));

    const std::string madeUp(1 << 20, 'T'); // which clients may do without end
    read(madeUp);
    for (int i = 0; i < 5000; ++i) {
        read("T" + std::to_string(i));
    }
    EXPECT_LE(controller.keyCache().size(), 4096U);
    EXPECT_EQ(controller.keyCache().count(madeUp), 0U);
}

TEST_F(SensorSMCControllerTest, AFailedReadGivesZeros)
{
    smc.set("TC0P", "sp78", {0x2A, 0x80});
    controller.open();
    smc.keys["TC0P"].readFails = true;
    const SMCKeyValue value = read("TC0P");
    EXPECT_EQ(value.dataSize, 2U);
    EXPECT_STREQ(value.dataType.data(), "sp78");
    EXPECT_EQ(value.bytes, (std::array<std::uint8_t, 32>{}));
    smc.keys["TC0P"].readFails = false;
    EXPECT_EQ(read("TC0P").bytes, (std::array<std::uint8_t, 32>{0x2A, 0x80}));
    EXPECT_EQ(smc.count(SMCCommand::ReadKeyInfo), 1) << "once a key";
}

TEST_F(SensorSMCControllerTest, TellsWhyItDidNotOpenOpensOnceAndClosesByTheBook)
{
    smc.setFloat("TC0P", 40);
    smc.present = false;
    EXPECT_EQ(controller.open(), IOStatus::NotFound);
    smc.present = true;
    smc.openStatus = IOStatus::NotPrivileged;
    EXPECT_EQ(controller.open(), IOStatus::Error);
    EXPECT_EQ(controller.connection(), 0U);
    EXPECT_EQ(read("TC0P"), SMCKeyValue()) << "zeros";
    smc.openStatus = IOStatus::Success;
    EXPECT_EQ(controller.open(), IOStatus::Success);
    const auto connection = controller.connection();
    EXPECT_EQ(smc.openedType, 1U);
    EXPECT_EQ(controller.open(), IOStatus::Error);
    EXPECT_EQ(controller.connection(), connection);
    EXPECT_EQ(smc.finds, smc.releases + 1) << "of the one that was not there";
    controller.openIfNeeded();
    EXPECT_EQ(smc.finds, 3);

    controller.close();
    controller.close();
    EXPECT_EQ(controller.connection(), 0U);
    EXPECT_EQ(smc.closed, std::vector{connection});
    EXPECT_EQ(
        smc.scalarCalls, (std::vector<std::pair<SMCService::Handle, std::uint32_t>>{{connection, 0}, {connection, 1}}));
}

TEST_F(SensorSMCControllerTest, WritesFloatsToKeysOfFourBytesAndQuartersOrRawBytesToOthers)
{
    smc.setFloat("F0Tg", 0);
    smc.set("F0Mn", "fpe2", {0, 0});
    smc.set("F0Md", "ui8 ", {0});
    smc.set("FS! ", "ui16", {9, 9});
    controller.open();
    EXPECT_EQ(controller.writeValue(2000.5, "F0Tg"), IOStatus::Success);
    EXPECT_EQ(written("F0Tg"), (std::vector<std::uint8_t>{0x00, 0x10, 0xFA, 0x44}));
    EXPECT_EQ(controller.writeRawValue("1800.25", "F0Tg"), IOStatus::Success);
    EXPECT_EQ(written("F0Tg"), (std::vector<std::uint8_t>{0x00, 0x08, 0xE1, 0x44}));
    const std::pair<Value, std::vector<std::uint8_t>> quarters[] = {{"1200", {0x12, 0xC0}}, {10, {0x00, 0x28}},
        {100'000, {0x61, 0xA8}}, // the first four of 61a80
        {-1, {0xFF, 0xFF}}, {Value::array(), {0, 0}}};
    for (const auto& [value, bytes] : quarters) {
        controller.writeValue(value, "F0Mn");
        EXPECT_EQ(written("F0Mn"), bytes) << value;
    }
    const std::tuple<const char*, const char*, std::vector<std::uint8_t>> raw[] = {
        {"F0Md", "257", {1}}, {"FS! ", "01fE", {0x01, 0xFE}}, {"FS! ", "12", {0, 0}}};
    for (const auto& [key, text, bytes] : raw) {
        controller.writeRawValue(text, key);
        EXPECT_EQ(written(key), bytes) << text;
    }
}

TEST_F(SensorSMCControllerTest, ARefusedKeyIsNotWritten)
{
    controller.open();
    EXPECT_EQ(controller.writeValue(1, "F9Mn"), IOStatus::NotFound);
    EXPECT_EQ(controller.writeRawValue("1", "F9Mn"), IOStatus::NotFound);
    smc.set("F0Mn", "fpe2", {0, 0});
    smc.keys["F0Mn"].infoResult = 133;
    EXPECT_EQ(controller.writeValue(1, "F0Mn"), IOStatus::InternalError);
    EXPECT_EQ(smc.count(SMCCommand::WriteKey), 0);
    smc.keys["F0Mn"].infoResult = 0;
    smc.writeStatus = IOStatus::NotPrivileged;
    EXPECT_EQ(controller.writeValue(1, "F0Mn"), IOStatus::NotPrivileged);
}

TEST_F(SensorSMCControllerTest, PacksKeysFromTheirFirstFourCharacters)
{
    EXPECT_EQ(makeUInt32Key("F0Ac"), 0x46304163U);
    EXPECT_EQ(makeUInt32Key("F0AcX"), 0x46304163U);
    EXPECT_EQ(makeUInt32Key("F0"), 0U);
    EXPECT_EQ(makeUInt32Key(nullptr), 0U);

    std::string logged;
    log.addListener([&](LogLevel, std::string_view line) { logged += line; });
    controller.open();
    read("F0");
    EXPECT_EQ(logged, "");
    controller.setDebug(true);
    read("F0");
    log.flush();
    EXPECT_NE(logged.find("error converting key - F0"), std::string::npos);
}

} // namespace
} // namespace meridal
