// SPDX-License-Identifier: Apache-2.0
#include "client/screen/Output.h"

#include "base/Text.h"

#include <cerrno>
#include <cstdio>
#include <system_error>

namespace meridal {

bool Output::write(std::string_view text)
{
    if (error_ != 0) {
        return false;
    }
    errno = 0;
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0) {
        error_ = errno != 0 ? errno : EIO;
    }
    return error_ == 0;
}

bool Output::write(const Lines& lines)
{
    std::string text;
    for (const Line& line : lines) {
        text += coloured_ ? colouredText(line) : plainText(line);
        text += '\n';
    }
    return write(text);
}

bool Output::readerLeft() const { return error_ == EPIPE; }

std::string Output::failure() const
{
    return "cannot write to standard output: " + std::generic_category().message(error_);
}

std::string writeFile(const std::string& path, const std::string& content)
{
    errno = 0;
    std::FILE* file = std::fopen(path.c_str(), "w");
    bool written = file && std::fwrite(content.data(), 1, content.size(), file) == content.size();
    if (file) {
        written = std::fclose(file) == 0 && written;
    }
    return written ? "" : std::generic_category().message(errno != 0 ? errno : EIO);
}

void complain(std::string_view message)
{
    const std::string line = "meridalctl: " + printable(message) + '\n';
    std::fwrite(line.data(), 1, line.size(), stderr);
}

} // namespace meridal
