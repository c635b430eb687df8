// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Result.h"
#include "base/Value.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace meridal {

/// Who reads the line, and so what must be escaped in it and how trouble is marked.
enum class BarFormat : std::uint8_t {
    Plain,
    Waybar,  ///< JSON with Pango markup as text, and a class
    Polybar, ///< "%{F#...}" is a colour
    I3bar,   ///< an endless JSON array, also of swaybar
    Tmux,    ///< "#[fg=...]" is a colour, "##" a "#"
};

/// What the daemon is asked for.
enum class BarQuestion : std::uint8_t { None, Machine, Sensors, Interfaces, Battery };

/// Words with figures between them: "{cpu} {temp:CPU}".
struct BarTemplate {
    struct Part {
        std::string text;   ///< as it is, in front of the figure
        std::string figure; ///< "cpu"; empty at the end
        std::string name;   ///< of which one; empty: of the usual one
    };
    std::vector<Part> parts;

    /// "{{" and "}}" are braces. An error says what there is instead of a figure that there is not.
    static Result<BarTemplate> parse(std::string_view text);
    bool asks(BarQuestion question) const;
};

/// The answers of machine.state, sensors.list, network.interfaces and battery.state; null while there are none.
struct BarFigures {
    Value machine;
    Value sensors;
    Value interfaces;
    Value battery;
    bool isOffline = false;
};

/// What goes before the first line.
std::string_view barHeader(BarFormat format);
/// One line, its end included.
std::string barLine(BarFormat format, const BarTemplate& layout, const BarFigures& figures);

} // namespace meridal
