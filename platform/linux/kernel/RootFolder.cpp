// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/kernel/RootFolder.h"

#include "platform/linux/kernel/Descriptor.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>

namespace meridal {

namespace {

constexpr std::size_t maximumSize = 1 << 20;

std::string_view trimmed(std::string_view text)
{
    constexpr std::string_view blanks(" \t\r\n\0", 5);
    const std::size_t begin = text.find_first_not_of(blanks);
    if (begin == std::string_view::npos) {
        return {};
    }
    return text.substr(begin, text.find_last_not_of(blanks) - begin + 1);
}

std::string_view firstLine(std::string_view text) { return text.substr(0, text.find('\n')); }

} // namespace

std::optional<std::string> RootFolder::read(std::string_view relative) const
{
    // Not blocking: a fifo in the place of a file must not stop the daemon.
    const Descriptor file(::open(path(relative).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!file) {
        return std::nullopt;
    }
    std::string text;
    char part[4096];
    while (text.size() < maximumSize) {
        const ssize_t size = ::read(file.get(), part, sizeof part);
        if (size < 0) {
            return std::nullopt;
        }
        if (size == 0) {
            break;
        }
        text.append(part, static_cast<std::size_t>(size));
    }
    return text;
}

std::optional<std::string> RootFolder::readLine(std::string_view relative) const
{
    const auto text = read(relative);
    const std::string_view line = trimmed(firstLine(text ? std::string_view(*text) : std::string_view()));
    return line.empty() ? std::nullopt : std::optional(std::string(line));
}

std::vector<std::string> RootFolder::list(std::string_view relative) const
{
    std::vector<std::string> names;
    std::error_code error;
    std::filesystem::directory_iterator entry(path(relative), error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        names.push_back(entry->path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

bool RootFolder::exists(std::string_view relative) const { return ::access(path(relative).c_str(), F_OK) == 0; }

bool RootFolder::isDenied(std::string_view relative) const
{
    // Opened, not asked with access(): capabilities and ptrace rules count as they do for the reading itself.
    const Descriptor file(::open(path(relative).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!file) {
        return errno == EACCES || errno == EPERM;
    }
    char byte = 0;
    return ::read(file.get(), &byte, 1) < 0 && (errno == EACCES || errno == EPERM);
}

std::optional<std::string> valueOfKey(std::string_view text, std::string_view key, char separator)
{
    while (!text.empty()) {
        const std::string_view line = firstLine(text);
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        const std::size_t end = line.find(separator);
        if (end == std::string_view::npos || trimmed(line.substr(0, end)) != key) {
            continue;
        }
        std::string_view value = trimmed(line.substr(end + 1));
        if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'') && value.back() == value.front()) {
            value = value.substr(1, value.size() - 2);
        }
        return std::string(value);
    }
    return std::nullopt;
}

std::optional<std::uint64_t> leadingNumber(std::string_view text)
{
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end != text.data() ? std::optional(number) : std::nullopt;
}

} // namespace meridal
