// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/kernel/KeptFile.h"

#include <fcntl.h>
#include <unistd.h>

namespace meridal {

namespace {

constexpr std::size_t atOnce = 4096;
constexpr std::size_t mostBytes = 1 << 20;

} // namespace

std::optional<std::string_view> KeptFile::read()
{
    if (file_ && readOpened()) {
        return std::string_view(text_).substr(0, size_);
    }
    file_ = Descriptor(::open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (file_ && readOpened()) {
        return std::string_view(text_).substr(0, size_);
    }
    return std::nullopt;
}

bool KeptFile::readOpened()
{
    size_ = 0;
    while (size_ < mostBytes) {
        if (text_.size() - size_ < atOnce) {
            text_.resize(size_ + atOnce);
        }
        const ssize_t got = ::pread(file_.get(), text_.data() + size_, text_.size() - size_, static_cast<off_t>(size_));
        if (got < 0) {
            return false;
        }
        if (got == 0) {
            return true;
        }
        size_ += static_cast<std::size_t>(got);
    }
    return true;
}

} // namespace meridal
