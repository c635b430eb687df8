#pragma once

#include "client/commands/Session.h"

namespace meridal {

/// How long the machine has been up, and its boots before. Returns the exit status.
int runUptime(Session& session);

} // namespace meridal
