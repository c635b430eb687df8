// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Paths.h"

namespace meridal {

class HistoryDatabaseController;
class Log;
class NotificationCenter;
class Runtime;
struct Host;

/// What every class of the daemon is built on: made once in main, or by a test, and handed down by reference. It
/// outlives everything that was given it.
struct Context {
    Runtime& runtime;
    Host& host;
    NotificationCenter& notifications;
    Log& log;
    Paths paths;
    HistoryDatabaseController* databases = nullptr; ///< null: nothing is kept beyond this run
    double longTermAge = 3653 * 86'400.0;           ///< s after which rows leave the long-term stores: ten years

    /// The context behind the process-wide instances (`sharedProcesses` and its like). Set once by main before the first
    /// of them is asked for; a test that builds its own objects does not need it.
    static Context& shared();
    static void setShared(Context& context);
};

} // namespace meridal
