// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace meridal {

/// The record that the SMC's driver takes and gives, 80 bytes in the machine's order. The padding is spelt out, because
/// the driver gets every byte. Multi-character codes are packed with the first character in the high byte.
struct SMCParamRecord {
    std::uint32_t key = 0;                  ///< four characters
    std::array<std::uint8_t, 6> version{};  ///< major, minor, build, reserved, release (2 bytes); zero
    std::array<std::uint8_t, 2> padding1{}; ///< zero
    std::array<std::uint8_t, 16> limits{};  ///< version and length (2 bytes each), three limits (4 each); zero
    std::uint32_t dataSize = 0;             ///< bytes of `bytes` that mean something
    std::uint32_t dataType = 0;             ///< four characters
    std::uint8_t dataAttributes = 0;        ///< rights and kinds of access; unused here
    std::array<std::uint8_t, 3> padding2{}; ///< zero
    std::uint8_t result = 0;                ///< how the SMC took the command, an SMCResult
    std::uint8_t status = 0;                ///< unused
    std::uint8_t command = 0;               ///< an SMCCommand
    std::uint8_t padding3 = 0;              ///< zero
    std::uint32_t data32 = 0;               ///< the index for SMCCommand::ReadKeyAtIndex
    std::array<std::uint8_t, 32> bytes{};   ///< in the SMC's own order

    bool operator==(const SMCParamRecord&) const = default;
};

static_assert(sizeof(SMCParamRecord) == 80);
static_assert(offsetof(SMCParamRecord, version) == 4);
static_assert(offsetof(SMCParamRecord, limits) == 12);
static_assert(offsetof(SMCParamRecord, dataSize) == 28);
static_assert(offsetof(SMCParamRecord, dataType) == 32);
static_assert(offsetof(SMCParamRecord, dataAttributes) == 36);
static_assert(offsetof(SMCParamRecord, result) == 40);
static_assert(offsetof(SMCParamRecord, command) == 42);
static_assert(offsetof(SMCParamRecord, data32) == 44);
static_assert(offsetof(SMCParamRecord, bytes) == 48);

enum class SMCCommand : std::uint8_t {
    ReadKey = 5,
    WriteKey = 6,
    ReadKeyAtIndex = 8, ///< from data32 to the key
    ReadKeyInfo = 9,    ///< from the key to data size and type
};

enum class SMCResult : std::uint8_t {
    Success = 0,
    Failed = 1,
    BadCommand = 130,
    NotReadable = 133,
    NotWritable = 134,
    KeyNotFound = 132,
    BadIndex = 184,
};

} // namespace meridal
