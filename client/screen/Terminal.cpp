// SPDX-License-Identifier: Apache-2.0
#include "client/screen/Terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <string_view>

namespace meridal {

bool outputIsTerminal()
{
    const char* kind = std::getenv("TERM");
    return ::isatty(STDOUT_FILENO) != 0 && kind && *kind != '\0' && std::string_view(kind) != "dumb";
}

bool inputIsTerminal() { return ::isatty(STDIN_FILENO) != 0; }

std::optional<int> terminalColumns()
{
    winsize size{};
    const bool isKnown = ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return isKnown ? std::optional<int>(size.ws_col) : std::nullopt;
}

std::optional<int> terminalRows()
{
    winsize size{};
    const bool isKnown = ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 0;
    return isKnown ? std::optional<int>(size.ws_row) : std::nullopt;
}

} // namespace meridal
