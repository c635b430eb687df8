// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "client/commands/Session.h"

#include <string>
#include <vector>

namespace meridal {

struct CheckAlertOptions {
    bool alert = false;  ///< by the command and the mail of [alerts]
    bool notify = false; ///< by notifications on the desktop
};

/// Looks at some topics again and again, as [alerts] says, and tells changes, until interrupted; a daemon that is away is
/// one. Refused to root: what it runs is a program from a file.
int watchForAlerts(Session& session, const std::vector<std::string>& topics, const CheckAlertOptions& options);

} // namespace meridal
