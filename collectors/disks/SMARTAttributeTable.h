#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace meridal {

/// How the six raw bytes of an attribute are to be read. The numbers are those of an attribute's `format`; -1 there
/// stands for the default. Hex64 and Raw64 also take the bytes of worst and current in.
enum class RawFormat : int {
    Bytes = 0,               ///< six numbers
    Words = 1,               ///< three numbers of 16 bits
    Hex48 = 2,               ///< as it is, for people who know the disk
    Hex64 = 3,               ///< likewise
    Low16 = 4,               ///< a count in the lowest 16 bits, other things above
    Raw64 = 5,               ///< a count of 64 bits
    Raw48 = 6,               ///< a count of 48 bits
    Low24 = 7,               ///< a count in the lowest 24 bits
    Low32 = 8,               ///< a count in the lowest 32 bits
    Hours = 9,               ///< lowest 32 bits
    Minutes = 10,            ///< lowest 32 bits
    HalfMinutes = 11,        ///< lowest 32 bits
    Seconds = 12,            ///< lowest 32 bits
    Milliseconds = 13,       ///< lowest 16 bits
    HoursAndFraction = 14,   ///< hours in the lowest 32 bits, something finer above
    Temperature = 15,        ///< °C in the lowest byte, often with the extremes above
    TemperatureTenths = 16,  ///< tenths of °C in the lowest 16 bits
    ErrorsOfOperations = 17, ///< errors in the highest 16 bits, operations in the 32 below
    Sectors = 18,            ///< 512 bytes each
    Mebibytes32 = 19,        ///< 32 MiB each
    Gibibytes = 20,
};

constexpr int defaultRawFormat = static_cast<int>(RawFormat::Raw48);

/// What an attribute is good for beyond its own line.
enum class AttributeRole : std::uint8_t {
    None,
    Temperature, ///< of the disk, as far as its format says so
    PowerOnTime,
    PowerCycles,
    LifeLeft, ///< its current value is the percentage of life that is left
    LifeUsed, ///< its raw value is the percentage of life that is used up
    Defects,  ///< raw counts above 0 are data or spare sectors lost
};

/// Which disks an entry of the table is for.
enum class AttributeScope : std::uint8_t { All, Spinning, Solid };

struct SMARTAttributeInfo {
    std::uint8_t attributeID = 0;
    AttributeScope scope = AttributeScope::All;
    std::string_view name;
    RawFormat format = RawFormat::Raw48;
    AttributeRole role = AttributeRole::None;
    std::string_view meaning; ///< what it tells when it fails, for people; empty where it never does
};

/// What differs for disks whose model begins with one of these words.
struct SMARTVendorExceptions {
    std::span<const std::string_view> models;
    std::span<const SMARTAttributeInfo> attributes;
};

/// What is known of an attribute of a disk: the vendor's exception, else the common entry for its kind; null for an
/// attribute that nobody but its vendor knows. `spins` is absent while the kind is not known.
const SMARTAttributeInfo* attributeInfo(std::uint8_t attributeID, std::string_view model, std::optional<bool> spins);

/// All entries, for tests: the common ones, and each vendor's.
std::span<const SMARTAttributeInfo> commonAttributes();
std::span<const SMARTVendorExceptions> vendorExceptions();

} // namespace meridal
