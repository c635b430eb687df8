// SPDX-License-Identifier: Apache-2.0
#include "client/commands/CommandLine.h"
#include "client/commands/Session.h"
#include "client/screen/Output.h"
#include "client/screen/Terminal.h"

#include <csignal>
#include <cstdlib>
#include <exception>
#include <string_view>
#include <variant>

namespace {

using namespace meridal;

/// https://no-color.org: set to anything but nothing.
bool environmentForbidsColour()
{
    const char* value = std::getenv("NO_COLOR");
    return value && *value != '\0';
}

int run(const CommandLine& line)
{
    const bool isTerminal = outputIsTerminal();
    const bool isColoured =
        line.colour == "always" || (line.colour == "auto" && isTerminal && !environmentForbidsColour());
    Session session(line.socketPath, line.timeout, {.isTerminal = isTerminal, .isColoured = isColoured});
    const int status = line.command(session);
    if (!session.complaint().empty()) {
        complain(session.complaint());
    }
    return status;
}

} // namespace

int main(int argc, char** argv)
{
    std::signal(SIGPIPE, SIG_IGN); // a reader that leaves shows as a failed write
    try {
        const auto parsed = parseCommandLine(argc, argv);
        const int* status = std::get_if<int>(&parsed);
        return status ? *status : run(std::get<CommandLine>(parsed));
    } catch (const std::exception& error) {
        complain(error.what());
        return exitStatus::refused;
    }
}
