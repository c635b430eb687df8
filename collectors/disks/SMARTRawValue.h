// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"
#include "collectors/disks/SMARTPages.h"

#include <cstdint>
#include <optional>
#include <string_view>

namespace meridal {

/// How the bytes of an attribute are to be read; the names in quotes are those of smartmontools' database. The numbers are
/// those of an attribute's `format`; -1 there stands for the default.
enum class RawFormat : int {
    Raw8 = 0,          ///< "raw8": six numbers
    Raw16 = 1,         ///< "raw16": three numbers
    Hex48 = 2,         ///< "hex48"
    Hex64 = 3,         ///< "hex64": with worst and current as the lowest bytes
    Raw16Extra = 4,    ///< "raw16(raw16)": a count of 16 bits, other things above
    Raw64 = 5,         ///< "raw64": as Hex64
    Raw48 = 6,         ///< "raw48"
    Raw24Extra,        ///< "raw24(raw8)": a count of 24 bits, other things above
    Average16,         ///< "raw16(avg16)": a figure of 16 bits, its average above
    Raw56,             ///< "raw56": with the reserved byte on top
    Hex56,             ///< "hex56"
    Raw24Pair,         ///< "raw24/raw24": two counts
    Raw24Of32,         ///< "raw24/raw32": errors in the highest 24 bits, operations below
    Minutes,           ///< "min2hour": 32 bits
    Seconds,           ///< "sec2hour"
    HalfMinutes,       ///< "halfmin2hour"
    HoursMilliseconds, ///< "msec24hour32": hours in 32 bits, milliseconds of the current one in 24 above
    Temperature,       ///< "tempminmax": °C in the lowest byte, often with the extremes above
    TemperatureTenths, ///< "temp10x": tenths of °C in 16 bits
};

constexpr int defaultRawFormat = static_cast<int>(RawFormat::Raw48);

/// By its name in the database; absent for an unknown one.
std::optional<RawFormat> rawFormatNamed(std::string_view name);

/// A raw value as its format reads it.
struct SMARTRawValue {
    double figure = 0; ///< the main figure, in the unit of the format: a count, h, °C
    Value shown;       ///< the figure itself where it has no unit and no company, else text
};

/// The bytes in one number. `order` names them from the highest: '0' to '5' of the raw ones, 'r' the reserved one, 'v'
/// current, 'w' worst and 'z' zero; an empty one is the format's usual order. At most 8 bytes.
std::uint64_t rawNumber(RawFormat format, std::string_view order, const SMARTDataEntry& entry);

SMARTRawValue readRawValue(RawFormat format, std::uint64_t number);

/// Whether a disk may have that temperature: what is colder or hotter is no reading of a sensor. °C.
constexpr bool isDiskTemperature(double degrees) { return degrees >= -45 && degrees <= 125; }

} // namespace meridal
