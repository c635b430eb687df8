#pragma once

#include "client/commands/Session.h"

namespace meridal {

/// The sensors of this machine, once or until interrupted. Returns the exit status.
int runSensors(Session& session, bool onTerminal, bool coloured);
/// The fans.
int runFans(Session& session);

} // namespace meridal
