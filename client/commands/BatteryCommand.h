#pragma once

#include "client/commands/Session.h"

namespace meridal {

/// The batteries of the machine and of what is connected to it, with their history on request. Returns the exit status;
/// a machine without a battery is no failure.
int runBattery(Session& session);

} // namespace meridal
