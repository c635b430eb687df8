// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collectors/disks/SMARTRawValue.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace meridal {

/// Which disks have an attribute.
enum class AttributeScope : std::uint8_t { All, Spinning, Solid };

/// What an attribute of a disk is, by its name in smartmontools' database.
struct AttributeDefinition {
    std::string name; ///< as the database has it: "Power_On_Hours"
    RawFormat format = RawFormat::Raw48;
    std::string byteOrder; ///< see rawNumber()
    AttributeScope scope = AttributeScope::All;
};

/// What the attributes of one disk are, by id.
struct AttributeDefinitions {
    std::map<std::uint8_t, AttributeDefinition> attributes;
    /// Somebody has looked at disks of that model. Else these are the definitions that fit most disks.
    bool isKnownModel = false;
};

/// Without a database, and what it is laid over: what most disks agree on.
AttributeDefinitions usualDefinitions();

/// One entry of the database.
struct DriveEntry {
    std::string family;
    std::string model;    ///< a POSIX extended regular expression for the whole of it
    std::string firmware; ///< likewise; empty: any
    std::string warning;
    std::string presets; ///< options as on smartctl's command line
};

/// Goes through the text of a database, which has the form of an initialiser in C: entries of five strings. What cannot be
/// an entry is passed over. The text must outlive it.
class DriveDatabaseReader {
public:
    explicit DriveDatabaseReader(std::string_view text) : text_(text) { }

    /// Absent at the end.
    std::optional<DriveEntry> next();

private:
    std::optional<char> skipToToken();
    std::optional<std::string> readStrings();
    void readString(std::string& into);

    std::string_view text_;
    std::size_t at_ = 0;
};

/// Whether the whole text matches a POSIX extended regular expression. An expression that could cost more than a disk's
/// name is worth matches nothing.
bool matchesWhole(const std::string& expression, const std::string& text);

/// Takes over the "-v" options; what is not understood is left alone.
void applyPresets(std::string_view presets, AttributeDefinitions& definitions);

/// What a database says of a disk: its "DEFAULT" entry and the first one for that model and firmware. An empty text knows
/// nothing. Some 5 ms; for a queue on which waiting is allowed.
AttributeDefinitions definitionsFor(std::string_view database, const std::string& model, const std::string& firmware);

} // namespace meridal
