#pragma once

#include "client/commands/Session.h"

namespace meridal {

/// The machine's disks and their health. Returns the exit status.
int runDisks(Session& session);

} // namespace meridal
