#pragma once

#include "client/commands/Session.h"

namespace meridal {

/// Shows the top processes: live on a terminal, otherwise as text or JSON. Returns the exit status.
int runTop(Session& session, bool onTerminal, bool coloured);

} // namespace meridal
