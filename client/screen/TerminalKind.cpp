// SPDX-License-Identifier: Apache-2.0
#include "client/screen/TerminalKind.h"

#include <unistd.h>

#include <curses.h>
// Defines words such as "lines" and "columns" as macros, so nothing else is included in this file.
#include <term.h>

namespace meridal {

bool isKnownTerminalKind()
{
    int error = 0;
    if (::setupterm(nullptr, STDOUT_FILENO, &error) != OK) {
        return false;
    }
    ::del_curterm(cur_term);
    return true;
}

} // namespace meridal
