#pragma once

#include "client/commands/Session.h"

namespace meridal {

/// Prints the envelopes of the keys asked for as JSON lines. Returns the exit status.
int runWatch(Session& session);

} // namespace meridal
