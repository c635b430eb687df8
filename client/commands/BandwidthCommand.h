#pragma once

#include "client/commands/Session.h"

namespace meridal {

/// What went through the interfaces, by time, interface or Wi-Fi network. Returns the exit status.
int runBandwidth(Session& session);

} // namespace meridal
