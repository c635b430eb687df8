// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace meridal {

/// Whether the terminal on standard output is of a kind that the machine's terminfo describes. To be asked before curses is
/// begun, which keeps memory of its own where it cannot.
bool isKnownTerminalKind();

} // namespace meridal
