// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/linux/kernel/Descriptor.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace meridal {

/// A small file of the kernel that is read again and again: opened once, which saves the walk along its path, and read from
/// its start each time. Opened anew when it has gone, as a device's file does.
class KeptFile {
public:
    explicit KeptFile(std::filesystem::path path) : path_(std::move(path)) { }

    /// The file's bytes as they are now; valid until the next call. Absent when it cannot be read.
    std::optional<std::string_view> read();

private:
    bool readOpened();

    std::filesystem::path path_;
    Descriptor file_;
    std::string text_; ///< as large as the file ever was
    std::size_t size_ = 0;
};

} // namespace meridal
