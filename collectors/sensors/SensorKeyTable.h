// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/SensorSource.h"

#include <cstddef>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace meridal {

/// The keys by which clients and files know sensors, kept in a file, so that a sensor's history stays its own. A sensor
/// with a key of a real SMC has that. For the others a key is a letter for the kind, a digit and two of 0-9 A-Z: a digit there
/// means nothing to clients that know the keys of Apple's machines. It is made from the sensor's identity, so that most keys come out the same even when the file
/// was lost. Fans are numbered from 0, as clients count them; there are 16 numbers.
class SensorKeyTable {
public:
    /// Numbers of fans: one hexadecimal digit in their keys.
    static constexpr std::size_t fanNumbers = 16;

    /// Reads the file. Lines that mean nothing are left out, a file that is none is an empty table. An empty path keeps
    /// nothing.
    explicit SensorKeyTable(std::filesystem::path file);

    /// The key of each of these, all there are now, in their order; of a fan that of its speed ("F0Ac"). A sensor that
    /// the hardware names no further goes by that name. Empty for those that are ignored, and where none is left or
    /// another one has it. The number of a fan that is gone goes to another one when all are taken.
    std::vector<std::string> keysFor(const std::vector<SensorRecord>& sensors);
    /// Writes the file anew when keys were given out since, all or nothing. False when it could not.
    bool save();

private:
    using Identities = std::set<std::string, std::less<>>;

    void read();
    std::string keyFor(SensorKind kind, const std::string& identity, const Identities& present);
    std::string give(const std::string& key, const std::string& identity);
    std::string fanKey(const std::string& identity, const Identities& present);

    std::filesystem::path file_;
    std::map<std::string, std::string> keys_;       ///< by kind's letter and identity
    std::map<std::string, std::string> identities_; ///< by key, the reverse
    std::set<std::string> reserved_;                ///< keys that a real SMC has
    bool changed_ = false;
};

} // namespace meridal
