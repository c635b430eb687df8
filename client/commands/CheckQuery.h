// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "client/check/CheckReport.h"
#include "client/check/CheckRules.h"
#include "client/commands/Session.h"

#include <functional>
#include <string>
#include <vector>

namespace meridal {

/// Whether the question may have something read: disks that were not since the daemon's start, and do not sleep; batteries,
/// of connected devices, too. Who looks again and again must not.
enum class CheckReading { Passive, WhereNeeded };

/// Asks what the topics take, by the daemon's latest readings: asking makes it measure no more often, but for what it does
/// not record. `done` is called once, within the call where there is no connection; the answers of status are handed on, too,
/// null without a daemon.
void askCheck(Session& session, const std::vector<std::string>& topics, CheckReading reading,
    std::function<void(CheckReport report, const Value& status)> done);

/// Prints the check of some topics, ends with its state and answers that as the exit status, also without a daemon.
int runCheckOf(Session& session, const std::vector<std::string>& topics, bool json);

/// As text: the line for plugins, and where there is more than one thing to say each topic below it.
std::string checkText(const CheckReport& report, bool withFigures);

} // namespace meridal
