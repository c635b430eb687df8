// SPDX-License-Identifier: Apache-2.0
#include "collectors/sensors/SensorKeyTable.h"

#include <algorithm>
#include <cstdint>
#include <fcntl.h>
#include <fstream>
#include <optional>
#include <string>
#include <unistd.h>
#include <utility>

namespace meridal {

namespace {

constexpr std::string_view digits = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";
constexpr std::uint64_t keysOfAKind = 10 * 36 * 36;
constexpr std::uintmax_t largestFile = 8 << 20;
constexpr std::size_t longestIdentity = 1024;

char letterOf(SensorKind kind)
{
    switch (kind) {
    case SensorKind::Fan:
        return 'F';
    case SensorKind::Voltage:
        return 'V';
    case SensorKind::Current:
        return 'I';
    case SensorKind::Power:
        return 'P';
    case SensorKind::Humidity:
        return 'H';
    case SensorKind::Temperature:
        break;
    }
    return 'T';
}

std::string keyOfNumber(char letter, std::uint64_t number)
{
    return {letter, digits[number / (36 * 36) % 10], digits[number / 36 % 36], digits[number % 36]};
}

std::string fanKeyOfNumber(std::size_t number) { return {'F', digits[number], 'A', 'c'}; }

/// FNV-1a, whose results may never change: they are in files.
std::uint64_t hashOf(std::string_view text)
{
    std::uint64_t hash = 0xcbf29ce484222325;
    for (const char c : text) {
        hash = (hash ^ static_cast<std::uint8_t>(c)) * 0x100000001b3;
    }
    return hash;
}

bool isStoredKey(std::string_view key)
{
    const auto isOneOf = [&](std::size_t at, std::string_view set) { return set.find(key[at]) != set.npos; };
    if (key.size() != 4) {
        return false;
    }
    if (key[0] == 'F') {
        return isOneOf(1, digits.substr(0, SensorKeyTable::fanNumbers)) && key.substr(2) == "Ac";
    }
    return isOneOf(0, "TVIPH") && isOneOf(1, digits.substr(0, 10)) && isOneOf(2, digits) && isOneOf(3, digits);
}

/// Whether the whole text is on the disk.
bool writeDurably(const std::filesystem::path& file, std::string_view text)
{
    const int descriptor = ::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0640);
    bool isWritten = descriptor >= 0;
    while (isWritten && !text.empty()) {
        const ssize_t written = ::write(descriptor, text.data(), text.size());
        isWritten = written > 0;
        text.remove_prefix(isWritten ? static_cast<std::size_t>(written) : 0);
    }
    isWritten = isWritten && ::fsync(descriptor) == 0;
    if (descriptor >= 0) {
        ::close(descriptor);
    }
    return isWritten;
}

} // namespace

SensorKeyTable::SensorKeyTable(std::filesystem::path file) : file_(std::move(file)) { read(); }

void SensorKeyTable::read()
{
    std::error_code error;
    if (file_.empty() || !std::filesystem::is_regular_file(file_, error)
        || std::filesystem::file_size(file_, error) > largestFile) {
        return;
    }
    std::ifstream stream(file_, std::ios::binary);
    for (std::string line; std::getline(stream, line);) {
        const std::string key = line.substr(0, 4);
        if (isStoredKey(key) && line.size() > 5 && line[4] == ' ' && line.size() <= longestIdentity
            && std::none_of(line.begin(), line.end(), [](char c) { return c >= '\0' && c < ' '; })) {
            give(key, line.substr(5));
        }
    }
    changed_ = false;
}

/// Ties the two, unless the key or the identity has another already.
std::string SensorKeyTable::give(const std::string& key, const std::string& identity)
{
    const auto [entry, isNew] = keys_.emplace(key[0] + identity, key);
    if (isNew && !identities_.emplace(key, identity).second) {
        keys_.erase(entry);
        return {};
    }
    changed_ = changed_ || isNew;
    return entry->second;
}

std::vector<std::string> SensorKeyTable::keysFor(const std::vector<SensorRecord>& sensors)
{
    const auto isSMCs = [](const SensorRecord& sensor) { return sensor.key.size() == 4; };
    Identities present;
    for (const SensorRecord& sensor : sensors) {
        present.insert(sensor.key);
        if (isSMCs(sensor)) {
            reserved_.insert(sensor.key);
        }
    }
    std::set<std::string> used;
    std::vector<std::string> keys;
    for (const SensorRecord& sensor : sensors) {
        std::string key = sensor.isIgnored ? ""
            : isSMCs(sensor)               ? sensor.key
            : sensor.isNameless            ? sensor.channel
                                           : keyFor(sensor.kind, sensor.key, present);
        const bool isFree = !key.empty() && used.insert(key).second;
        keys.push_back(isFree ? std::move(key) : std::string());
    }
    return keys;
}

std::string SensorKeyTable::keyFor(SensorKind kind, const std::string& identity, const Identities& present)
{
    const char letter = letterOf(kind);
    if (const auto entry = keys_.find(letter + identity); entry != keys_.end()) {
        if (!reserved_.contains(entry->second)) {
            return entry->second;
        }
        identities_.erase(entry->second);
        keys_.erase(entry);
    }
    if (identity.empty() || identity.size() + 5 > longestIdentity) {
        return {};
    }
    if (kind == SensorKind::Fan) {
        return fanKey(identity, present);
    }
    const std::uint64_t first = hashOf(identity);
    for (std::uint64_t i = 0; i < keysOfAKind; ++i) {
        std::string key = keyOfNumber(letter, (first % keysOfAKind + i) % keysOfAKind);
        if (!identities_.contains(key) && !reserved_.contains(key)) {
            return give(key, identity);
        }
    }
    return {};
}

std::string SensorKeyTable::fanKey(const std::string& identity, const Identities& present)
{
    std::optional<std::string> abandoned;
    for (std::size_t number = 0; number < fanNumbers; ++number) {
        std::string key = fanKeyOfNumber(number);
        if (reserved_.contains(key)) {
            continue;
        }
        const auto owner = identities_.find(key);
        if (owner == identities_.end()) {
            return give(key, identity);
        }
        if (!abandoned && !present.contains(owner->second)) {
            abandoned = key;
        }
    }
    if (!abandoned) {
        return {};
    }
    const auto owner = identities_.find(*abandoned);
    keys_.erase('F' + owner->second);
    identities_.erase(owner);
    return give(*abandoned, identity);
}

bool SensorKeyTable::save()
{
    if (!changed_ || file_.empty()) {
        return true;
    }
    std::string text;
    for (const auto& [key, identity] : identities_) {
        text += key + " " + identity + "\n";
    }
    std::error_code error;
    std::filesystem::create_directories(file_.parent_path(), error);
    auto fresh = file_;
    fresh += ".new";
    if (!writeDurably(fresh, text)) {
        return false;
    }
    std::filesystem::rename(fresh, file_, error);
    if (error) {
        return false;
    }
    changed_ = false;
    return true;
}

} // namespace meridal
