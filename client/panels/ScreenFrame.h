// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "client/panels/Panel.h"
#include "client/screen/StyledText.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace meridal {

/// All that the frame around a panel says.
struct ScreenFrame {
    std::string machine; ///< its name, printable; empty while it is not known
    double now = 0;      ///< s since 1970
    bool isConnected = true;
    bool isPaused = false;
    std::optional<double> moment;    ///< the past moment that is looked at
    std::vector<std::string> titles; ///< of the panels, in the order of their digits
    std::size_t front = 0;           ///< the panel that is shown
    std::vector<PanelKey> keys;      ///< of that panel
    std::optional<Line> prompt;      ///< in the place of the keys: a question, a message
};

/// Lines of the frame above and below the panel.
constexpr int frameLinesAbove = 2;
constexpr int frameLinesBelow = 1;

/// The whole screen: the frame's lines around the panel's from `first` on, at most so many rows, each as wide as the screen at most.
/// A frame that is larger than the screen gives way.
Lines framedLines(const ScreenFrame& frame, const Lines& panel, std::size_t first, int rows, int columns);

/// All keys, those of the panel and those of the frame.
Lines helpLines(const ScreenFrame& frame, int columns);

/// The panel whose title is in that column of the row of titles; nothing beside them.
std::optional<std::size_t> panelAtColumn(const ScreenFrame& frame, int columns, int column);

} // namespace meridal
