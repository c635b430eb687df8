// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "client/screen/StyledText.h"

#include <string>
#include <string_view>

namespace meridal {

/// Standard output as text. A reader that leaves (`| head`) ends the program quietly, a full disk does not.
class Output {
public:
    explicit Output(bool coloured) : coloured_(coloured) { }

    /// Writes and flushes; false once nothing can be written any more.
    bool write(std::string_view text);
    bool write(const Lines& lines);

    /// Whether the failure is only that nobody reads.
    bool readerLeft() const;
    /// Why writing failed, for people.
    std::string failure() const;

private:
    bool coloured_;
    int error_ = 0; ///< errno of the first failure
};

/// Writes a file whole. Answers why not, or nothing.
std::string writeFile(const std::string& path, const std::string& content);

/// One line on standard error.
void complain(std::string_view message);

} // namespace meridal
