#pragma once

#include "client/Session.h"

namespace meridal {

/// The machine's disks and their health. Returns the exit status.
int runDisks(Session& session);

} // namespace meridal
