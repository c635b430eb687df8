// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace meridal {

/// What the name of a process says about how it is grouped and shown.
struct ProcessNameTraits {
    bool safariWebContent = false; ///< renders web pages for a browser
    bool standsAlone = false;      ///< never grouped under another process
    bool startsCommands = false;   ///< a shell, a terminal or a launcher: what it starts is not part of it
    bool operator==(const ProcessNameTraits&) const = default;
};

ProcessNameTraits traitsOfName(std::string_view name);

/// Addresses of web pages as shown to people: joined with ", ", without "https://", "http://" and "www.".
std::string displayNameOf(const std::vector<std::string>& urls);

/// What follows the last "/" of a path, as valid text; absent without a "/".
std::optional<std::string> lastComponent(std::string_view path);

/// Full names of programs by the short name that the process table shows. Any user can make up names, so it starts
/// over when it is full.
class ProcessNameCache {
public:
    static constexpr std::size_t capacity = 4096;

    const std::string* find(const std::string& shortName) const;
    void store(const std::string& shortName, const std::string& fullName);
    std::size_t size() const { return names_.size(); }

private:
    std::unordered_map<std::string, std::string> names_;
};

} // namespace meridal
