#pragma once

#include "client/commands/Session.h"

namespace meridal {

/// The commands that ask once and print the answer. Each returns the exit status.
int runProcesses(Session& session);
int runVersion(Session& session);
int runPing(Session& session);
int runStatus(Session& session);
int runCall(Session& session);

} // namespace meridal
