// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace CLI {
class App;
}

namespace meridal {

/// Makes the help of a program and of the commands that are added from now on fit for people: choices as words, figures without
/// the ranges of their types, the usual value and what excludes what in brackets, nothing beyond 80 columns.
void arrangeHelp(CLI::App& app);

/// The help of one of its commands, or of the program itself.
std::string helpOf(const CLI::App& app);
std::string helpOf(const CLI::App& app, const std::string& command);

/// Says that there is no such command, which one may be meant, and where they are listed.
std::string unknownCommandComplaint(const CLI::App& app, const std::string& word);

/// The word in the place of a command that is none, once parsing has failed; empty when something else is wrong.
std::string wordInsteadOfCommand(const CLI::App& app);

} // namespace meridal
