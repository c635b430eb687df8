// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace meridal {

/// Something that a person did with the keyboard or the mouse.
struct Key {
    enum class Kind : std::uint8_t {
        Character, ///< printable; of combinations with Control none but Redraw arrive
        Up,
        Down,
        Left,
        Right,
        PageUp,
        PageDown,
        Home,
        End,
        Insert,
        Delete,
        Backspace,
        Enter,
        Escape,
        Tab,
        BackTab, ///< Shift and Tab
        Function,
        Redraw, ///< Ctrl-L
        Click,  ///< the first button
        WheelUp,
        WheelDown,
    };

    Kind kind = Kind::Character;
    char32_t character = 0; ///< of Character
    int number = 0;         ///< of Function, from 1 on
    int row = 0;            ///< of the mouse, from 0 on
    int column = 0;

    bool operator==(const Key&) const = default;
    bool is(char32_t wanted) const { return kind == Kind::Character && character == wanted; }
    bool isMouse() const { return kind >= Kind::Click; }

    static constexpr Key of(char32_t character) { return {.kind = Kind::Character, .character = character}; }
    static constexpr Key of(Kind kind) { return {.kind = kind}; }
};

} // namespace meridal
