// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "client/commands/Session.h"
#include "client/commands/Syntax.h"

namespace meridal {

// Each adds the commands of one file, which are called as it is but for addProcesses: "processes" and "process",
// addQuestions: "version", "ping" and "status", and addSensors: "sensors" and "fans".
void addScreen(Grammar& grammar);
void addTop(Grammar& grammar);
void addProcesses(Grammar& grammar);
void addQuestions(Grammar& grammar);
void addAt(Grammar& grammar);
void addWhy(Grammar& grammar);
void addUptime(Grammar& grammar);
void addSensors(Grammar& grammar);
void addHistory(Grammar& grammar);
void addBattery(Grammar& grammar);
void addDisks(Grammar& grammar);
void addNetwork(Grammar& grammar);
void addBandwidth(Grammar& grammar);
void addApplications(Grammar& grammar);
void addCall(Grammar& grammar);
void addWatch(Grammar& grammar);
void addMetrics(Grammar& grammar);
void addCheck(Grammar& grammar);
void addBar(Grammar& grammar);
void addReport(Grammar& grammar);
void addComplete(Grammar& grammar);

} // namespace meridal
