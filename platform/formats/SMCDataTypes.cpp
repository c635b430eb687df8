// SPDX-License-Identifier: Apache-2.0
#include "platform/formats/SMCDataTypes.h"

#include "base/Text.h"

#include <cstring>
#include <optional>
#include <string_view>

namespace meridal {

namespace {

constexpr float unknown = -1;

unsigned unsigned16(const SMCKeyValue& data) { return static_cast<unsigned>(data.bytes[0]) << 8U | data.bytes[1]; }

std::uint32_t unsigned32(const SMCKeyValue& data)
{
    return static_cast<std::uint32_t>(unsigned16(data)) << 16U | static_cast<std::uint32_t>(data.bytes[2]) << 8U
        | data.bytes[3];
}

unsigned hexadecimal(char digit)
{
    return digit >= '0' && digit <= '9' ? static_cast<unsigned>(digit - '0')
        : digit >= 'a' && digit <= 'f'  ? static_cast<unsigned>(digit - 'a' + 10)
                                        : 16; // never part of a sum that fits
}

/// What a fixed-point number is divided by. The type's last two characters are the bits before and after the point, in
/// hexadecimal; codes whose bits do not add up to the number's width divide by 1.
float divisor(std::string_view type, unsigned width)
{
    const unsigned before = hexadecimal(type[2]);
    const unsigned after = hexadecimal(type[3]);
    const bool isKnown = before < 16 && after > 0 && after < 16 && before + after == width;
    return isKnown ? static_cast<float>(1U << after) : 1;
}

/// Values by which firmware says why it has no measurement; they come as whole negative degrees in any fixed-point type.
std::optional<float> marker(const SMCKeyValue& data)
{
    const int high = data.bytes[0];
    return data.bytes[1] == 0 && high >= 128 && high <= 132 ? std::optional(static_cast<float>(high - 256))
                                                            : std::nullopt;
}

float signedFixedPoint(const SMCKeyValue& data, std::string_view type, SMCOrigin origin)
{
    const bool takesMarkers = origin == SMCOrigin::Own || data.dataSize != 2;
    if (const auto value = takesMarkers ? marker(data) : std::nullopt) {
        return *value;
    }
    const auto whole = static_cast<std::int16_t>(unsigned16(data));
    return static_cast<float>(whole) / divisor(type, 15); // and a sign
}

float unsignedFixedPoint(const SMCKeyValue& data, std::string_view type)
{
    const auto value = marker(data);
    return value ? *value : static_cast<float>(unsigned16(data)) / divisor(type, 16);
}

/// Signed integers are read as unsigned. An emulated SMC writes negative ones in two's complement, of which the size is
/// wanted and not the sign.
float magnitude(std::uint32_t value, unsigned bits, SMCOrigin origin)
{
    if (origin == SMCOrigin::Emulated && (value >> (bits - 1) & 1U) != 0) {
        const std::uint64_t range = std::uint64_t{1} << bits;
        value = static_cast<std::uint32_t>(range - value);
    }
    return static_cast<float>(value);
}

} // namespace

float convertSMCData(const SMCKeyValue& data, SMCOrigin origin)
{
    const std::string_view type(data.dataType.data(), 4);
    if (type.starts_with("sp")) {
        return signedFixedPoint(data, type, origin);
    }
    if (type.starts_with("fp")) {
        return unsignedFixedPoint(data, type);
    }
    if (type == "flt ") {
        float value = 0;
        std::memcpy(&value, data.bytes.data(), sizeof value);
        return value;
    }
    if (type == "ui32") {
        return static_cast<float>(unsigned32(data));
    }
    if (type == "ui16") {
        return static_cast<float>(unsigned16(data));
    }
    if (type == "flag" || type.starts_with("ui8")) {
        return data.bytes[0];
    }
    if (type.starts_with("si8")) {
        return magnitude(data.bytes[0], 8, origin);
    }
    if (type == "si16") {
        return magnitude(unsigned16(data), 16, origin);
    }
    return type == "si32" ? magnitude(unsigned32(data), 32, origin) : unknown;
}

double smcDecimal(const SMCKeyValue& data, SMCOrigin origin)
{
    const float value = convertSMCData(data, origin);
    return std::string_view(data.dataType.data(), 4) == "flt " ? toSevenDigits(value) : value;
}

} // namespace meridal
