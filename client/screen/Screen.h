// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "client/screen/Key.h"
#include "client/screen/StyledText.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace meridal {

/// How styles look. In none of them is colour all that tells one from another.
enum class Theme : std::uint8_t {
    Default,
    ColourBlind, ///< no red beside green: blue and yellow
    Mono,        ///< bold, underlined and reversed only
};

struct ScreenOptions {
    bool isColoured = true;
    bool isAscii = false; ///< also where the environment says that the terminal takes no UTF-8
    bool hasMouse = false;
    Theme theme = Theme::Default;
};

/// The whole terminal, in its alternate screen, until destroyed. One at a time. Signals are left to the caller.
class Screen {
public:
    /// Takes the terminal over; nothing when it is of a kind that cannot place text.
    static std::unique_ptr<Screen> open(const ScreenOptions& options);
    ~Screen();
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    int rows() const;
    int columns() const;
    bool isAscii() const { return options_.isAscii; }
    /// Sends what differs from what is shown.
    void show(const Lines& lines);
    /// Looks up the terminal's size again.
    void resized();
    /// Sends all anew with the next show(), for a terminal that somebody else has written to.
    void repaint();
    /// The next thing that was done, when there is one. Unknown keys are left out.
    std::optional<Key> readKey();

private:
    explicit Screen(ScreenOptions options);
    class Attributes;

    /// A character from its first byte.
    std::optional<Key> readCharacter(int first);

    ScreenOptions options_;
};

} // namespace meridal
