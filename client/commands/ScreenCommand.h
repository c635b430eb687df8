// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "client/commands/Session.h"

#include <string>

namespace meridal {

/// The full screen as it opens when no command was typed. On a terminal that cannot have one the text is printed instead.
int openScreen(Session& session, const std::string& otherwise);

} // namespace meridal
