// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace meridal {

/// Small files of the kernel and the system, below a root folder that is "/" in life and a recorded tree in tests.
class RootFolder {
public:
    explicit RootFolder(std::filesystem::path root) : root_(std::move(root)) { }

    std::filesystem::path path(std::string_view relative) const { return root_ / relative; }
    /// The file's bytes, at most 1 MiB of them. Absent when it cannot be read.
    std::optional<std::string> read(std::string_view relative) const;
    /// The first line without surrounding blanks and zeros, as sysfs and the device tree hold single values. Absent
    /// when there is nothing but blanks.
    std::optional<std::string> readLine(std::string_view relative) const;
    /// Names in a folder, sorted; empty when it cannot be read.
    std::vector<std::string> list(std::string_view relative) const;
    bool exists(std::string_view relative) const;
    /// Whether the file is there and this process may not read it.
    bool isDenied(std::string_view relative) const;

private:
    std::filesystem::path root_;
};

/// The value of "key : value" or "key=value" in the first line that has that key; blanks and quotes around it go.
std::optional<std::string> valueOfKey(std::string_view text, std::string_view key, char separator);

/// A whole decimal number at the start of a text.
std::optional<std::uint64_t> leadingNumber(std::string_view text);

} // namespace meridal
