// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "client/screen/StyledText.h"

#include <memory>
#include <optional>

namespace meridal {

/// The whole terminal, in its alternate screen, until destroyed. One at a time. Signals are left to the caller.
class Screen {
public:
    /// Takes the terminal over; nothing when it is of a kind that cannot place text.
    static std::unique_ptr<Screen> open(bool coloured);
    ~Screen();
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    int rows() const;
    int columns() const;
    void show(const Lines& lines);
    /// Looks up the terminal's size again.
    void resized();
    /// The next key pressed, when there is one. Keys that are no character are left out.
    std::optional<char> readKey();

private:
    explicit Screen(bool coloured);
    class Attributes;

    bool coloured_;
    bool isUtf8_;
};

} // namespace meridal
