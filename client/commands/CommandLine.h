// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "client/commands/Syntax.h"

#include <string>
#include <variant>

namespace meridal {

/// The command line, understood and checked.
struct CommandLine {
    std::string socketPath;
    std::string colour = "auto"; ///< or "always" or "never"
    double timeout = 5;          ///< s for an answer
    Command command;             ///< the one that was typed
};

/// Understands the command line, or has printed help or a complaint: then the exit status.
std::variant<CommandLine, int> parseCommandLine(int count, const char* const* argv);

} // namespace meridal
