#include "platform/linux/sensors/SMCKeyTable.h"

#include "platform/linux/kernel/Descriptor.h"

#include <algorithm>
#include <cstdint>
#include <fcntl.h>
#include <fstream>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace meridal {

namespace {

constexpr std::string_view digits = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";
constexpr std::uint64_t keysOfAKind = 10 * 36 * 36;
constexpr std::size_t fanNumbers = 16;
constexpr std::uintmax_t largestFile = 8 << 20;
constexpr std::size_t longestIdentity = 1024;

char letterOf(SensorChannelKind kind)
{
    switch (kind) {
    case SensorChannelKind::Fan:
        return 'F';
    case SensorChannelKind::Voltage:
        return 'V';
    case SensorChannelKind::Current:
        return 'I';
    case SensorChannelKind::Power:
        return 'P';
    case SensorChannelKind::Humidity:
        return 'H';
    case SensorChannelKind::Temperature:
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
        return isOneOf(1, digits.substr(0, fanNumbers)) && key.substr(2) == "Ac";
    }
    return isOneOf(0, "TVIPH") && isOneOf(1, digits.substr(0, 10)) && isOneOf(2, digits) && isOneOf(3, digits);
}

bool writeAll(int file, std::string_view text)
{
    while (!text.empty()) {
        const ssize_t written = ::write(file, text.data(), text.size());
        if (written <= 0) {
            return false;
        }
        text.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

} // namespace

SMCKeyTable::SMCKeyTable(std::filesystem::path file) : file_(std::move(file)) { read(); }

void SMCKeyTable::read()
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
std::string SMCKeyTable::give(const std::string& key, const std::string& identity)
{
    const auto [entry, isNew] = keys_.emplace(key[0] + identity, key);
    if (isNew && !identities_.emplace(key, identity).second) {
        keys_.erase(entry);
        return {};
    }
    changed_ = changed_ || isNew;
    return entry->second;
}

std::string SMCKeyTable::keyFor(
    SensorChannelKind kind, const std::string& identity, const std::set<std::string, std::less<>>& present)
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
    if (kind == SensorChannelKind::Fan) {
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

std::string SMCKeyTable::fanKey(const std::string& identity, const std::set<std::string, std::less<>>& present)
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

bool SMCKeyTable::save()
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
    {
        const Descriptor file(::open(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0640));
        if (!file || !writeAll(file.get(), text) || ::fsync(file.get()) != 0) {
            return false;
        }
    }
    std::filesystem::rename(fresh, file_, error);
    if (error) {
        return false;
    }
    changed_ = false;
    return true;
}

} // namespace meridal
