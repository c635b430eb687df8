#pragma once

#include "platform/host/SensorChannels.h"

#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <string_view>

namespace meridal {

/// Which SMC key stands for which channel of which chip, kept in a file, so that a sensor's history stays its own.
/// A key is a letter for the kind, a digit and two of 0-9 A-Z: a digit there means nothing to clients that know the keys
/// of Apple's machines. It is made from the channel's identity, so that most keys come out the same even when the file
/// was lost. Fans are numbered from 0, which the SMC's protocol asks for; there are 16 numbers.
class SMCKeyTable {
public:
    /// Reads the file. Lines that mean nothing are left out, a file that is none is an empty table. An empty path keeps
    /// nothing.
    explicit SMCKeyTable(std::filesystem::path file);

    /// The key of a channel; for a fan that of its speed ("F0Ac"). Empty when there is none left. `present` are the
    /// identities of all channels there are now: the number of a fan that is gone goes to another one when all are
    /// taken.
    std::string keyFor(
        SensorChannelKind kind, const std::string& identity, const std::set<std::string, std::less<>>& present);
    /// Takes a key out of use for others: a real SMC has it.
    void reserve(const std::string& key) { reserved_.insert(key); }
    /// Writes the file anew when keys were given out since, all or nothing. False when it could not.
    bool save();

private:
    void read();
    std::string give(const std::string& key, const std::string& identity);
    std::string fanKey(const std::string& identity, const std::set<std::string, std::less<>>& present);

    std::filesystem::path file_;
    std::map<std::string, std::string> keys_;       ///< by kind's letter and identity
    std::map<std::string, std::string> identities_; ///< by key, the reverse
    std::set<std::string> reserved_;
    bool changed_ = false;
};

} // namespace meridal
