#pragma once

namespace meridal {

/// Whether standard output is a terminal that can place text and colour it.
bool outputIsTerminal();

} // namespace meridal
