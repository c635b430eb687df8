// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>

namespace meridal {

/// Whether standard output is a terminal that can place text and colour it.
bool outputIsTerminal();
/// Whether standard input is a terminal.
bool inputIsTerminal();

/// How wide standard output is; nothing when it is no terminal.
std::optional<int> terminalColumns();
/// How many lines it shows.
std::optional<int> terminalRows();

} // namespace meridal
