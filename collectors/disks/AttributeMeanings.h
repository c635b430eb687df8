// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collectors/disks/DriveDatabase.h"

#include <optional>
#include <string>
#include <string_view>

namespace meridal {

/// What an attribute is good for beyond its own line.
enum class AttributeRole : std::uint8_t {
    None,
    Temperature, ///< of the disk, °C
    PowerOnTime, ///< a count of hours, or what its format makes of it
    PowerCycles,
    Life,    ///< how worn the disk is; see LifeScale
    Defects, ///< raw counts above 0 are data or spare sectors lost
    BytesWritten,
    BytesRead,
};

/// Where an attribute of the role Life keeps the percentage.
enum class LifeScale : std::uint8_t {
    CurrentLeft, ///< in its current value, as what is left
    CurrentKept, ///< likewise, and 0 on disks that do not keep it
    RawLeft,     ///< likewise in its raw value, or in the current one where that is 0 or no percentage
    RawUsed,     ///< in its raw value, as what is used up
    WordsUsed,   ///< used up: in the lowest 16 bits, whole percents in the upper byte and hundredths in the lower one
};

/// What is known of attributes of one name in the database.
struct AttributeMeaning {
    std::string_view name;    ///< in the database
    std::string_view title;   ///< for people
    std::string_view meaning; ///< what it tells when it fails, for people; empty where it never does
    AttributeRole role = AttributeRole::None;
    LifeScale scale = LifeScale::CurrentLeft;
    double unit = 1;              ///< bytes, of BytesWritten and BytesRead; 0: a logical sector of the disk
    std::uint8_t attributeID = 0; ///< the only one for which it holds; 0: any
};

/// Null for a name that is not on the list: nothing is concluded from such an attribute.
const AttributeMeaning* meaningOf(std::string_view name, std::uint8_t attributeID);

/// Where several attributes tell how worn a disk is: the smaller counts. Of meaningOf() only.
std::size_t lifeRank(const AttributeMeaning& meaning);

/// What is known of a disk as a whole that bears on its attributes.
struct DiskTraits {
    std::optional<bool> spins;      ///< absent while the kind is not known
    bool isModern = false;          ///< of ATA/ATAPI Command Set 2 or later (some 2011)
    std::uint32_t sectorSize = 512; ///< bytes, logical
};

/// An attribute of a disk as far as it is known.
struct AttributeDescription {
    std::optional<std::string> title; ///< absent for what only the vendor knows
    RawFormat format = RawFormat::Raw48;
    std::string byteOrder;
    const AttributeMeaning* meaning = nullptr;
    AttributeRole role = AttributeRole::None; ///< that of the meaning, where the disk can be trusted to mean it
    double unit = 1;                          ///< bytes
};

AttributeDescription describeAttribute(
    std::uint8_t attributeID, const AttributeDefinitions& definitions, const DiskTraits& disk);

} // namespace meridal
