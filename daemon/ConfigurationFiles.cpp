// SPDX-License-Identifier: Apache-2.0
// The part of the configuration that reads files.

#include "daemon/Configuration.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <system_error>
#include <utility>

namespace meridal {

namespace {

constexpr std::uintmax_t largestConfiguration = 256 * 1024; // a file of that size is something else

/// What stands in a file, or why that cannot be had. A device or a pipe would hold up the start.
std::optional<std::string> readConfigurationFile(const std::filesystem::path& file, std::string& why)
{
    std::error_code failure;
    const auto status = std::filesystem::status(file, failure);
    if (!std::filesystem::is_regular_file(status)) {
        why = std::filesystem::exists(status) ? "is no file"
                                              : std::system_category().message(failure ? failure.value() : ENOENT);
        return std::nullopt;
    }
    if (std::filesystem::file_size(file, failure) > largestConfiguration) {
        why = "is too large to be a configuration";
        return std::nullopt;
    }
    std::ifstream stream(file, std::ios::binary);
    const int reason = errno;
    std::string text{std::istreambuf_iterator<char>(stream), {}};
    if (!stream.good() && !stream.eof()) {
        why = std::system_category().message(reason);
        return std::nullopt;
    }
    return text;
}

/// Those that are there, in the order in which they count.
std::vector<std::filesystem::path> filesOf(const ConfigurationPlace& place)
{
    if (!place.file.empty()) {
        return {place.file};
    }
    std::error_code failure;
    std::vector<std::filesystem::path> additions;
    for (std::filesystem::directory_iterator entry(place.folder / "meridald.conf.d", failure), end;
         !failure && entry != end; entry.increment(failure)) {
        const std::string name = entry->path().filename().string();
        if (name.ends_with(".conf") && !name.starts_with('.')) {
            additions.push_back(entry->path());
        }
    }
    std::sort(additions.begin(), additions.end());
    if (const auto main = place.folder / "meridald.conf";
        std::filesystem::symlink_status(main, failure).type() != std::filesystem::file_type::not_found) {
        additions.insert(additions.begin(), main);
    }
    return additions;
}

} // namespace

void ConfigurationFiles::read()
{
    std::vector<ConfigurationText> texts;
    std::vector<ConfigurationWarning> unread;
    files_.clear();
    for (const std::filesystem::path& file : filesOf(place_)) {
        std::string why;
        if (auto text = readConfigurationFile(file, why)) {
            files_.push_back(file.string());
            texts.push_back({.file = file.string(), .text = std::move(*text)});
        } else {
            unread.push_back({.file = file.string(), .line = 0, .text = "cannot be read: " + why});
        }
    }
    parsed_ = parseConfiguration(texts);
    if (!unread.empty()) { // it may have said how long things stay
        parsed_.configuration.keep = keepEverything;
    }
    parsed_.warnings.insert(parsed_.warnings.begin(), unread.begin(), unread.end());
}

} // namespace meridal
