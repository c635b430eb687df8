// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

namespace meridal {

/// Bytes of which there are hardly ever more than 15, as in names of the process table: in half the room of std::string, for
/// texts of which there are thousands.
class ShortText {
public:
    ShortText() = default;
    ShortText(ShortText&& other) noexcept { swap(other); }
    ShortText& operator=(ShortText&& other) noexcept
    {
        swap(other);
        return *this;
    }
    ~ShortText()
    {
        if (size_ == elsewhere) {
            delete longText();
        }
    }

    ShortText& operator=(std::string_view text)
    {
        ShortText made;
        if (text.size() <= made.bytes_.size()) {
            text.copy(made.bytes_.data(), text.size());
            made.size_ = static_cast<std::uint8_t>(text.size());
        } else {
            const auto address = reinterpret_cast<std::uintptr_t>(new std::string(text));
            std::memcpy(made.bytes_.data(), &address, sizeof address);
            made.size_ = elsewhere;
        }
        swap(made);
        return *this;
    }

    /// Good until it is assigned to, or moved.
    operator std::string_view() const
    {
        return size_ == elsewhere ? std::string_view(*longText()) : std::string_view(bytes_.data(), size_);
    }

private:
    static constexpr std::uint8_t elsewhere = 0xFF; ///< then the bytes are those of a pointer

    const std::string* longText() const
    {
        std::uintptr_t address = 0;
        std::memcpy(&address, bytes_.data(), sizeof address);
        return reinterpret_cast<const std::string*>(address);
    }
    void swap(ShortText& other) noexcept
    {
        std::swap(bytes_, other.bytes_);
        std::swap(size_, other.size_);
    }

    std::array<char, 15> bytes_ = {};
    std::uint8_t size_ = 0;
};

} // namespace meridal
