#pragma once

#include "client/commands/Session.h"

namespace meridal {

/// What was recorded of one sensor, as a plot, a picture or figures. Returns the exit status.
int runHistory(Session& session);

} // namespace meridal
