// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>

namespace meridal {

/// Where this instance of the daemon keeps its things.
struct Paths {
    std::filesystem::path support;            ///< databases
    std::filesystem::path logs;               ///< rolling logs and "mas-daemon.log"
    std::filesystem::path run;                ///< socket and instance lock
    std::filesystem::path configuration = {}; ///< what the administrator writes

    std::filesystem::path socket() const { return run / "daemon.sock"; }
    std::filesystem::path instanceLock() const { return run / "daemon.lock"; }
    std::filesystem::path errorLog() const { return logs / "mas-daemon.log"; }
    std::filesystem::path uptimeDatabase() const { return support / "uptime.db"; }
    std::filesystem::path bandwidthDatabase() const { return support / "bandwidth.db"; }

    /// All folders under one root, for development and tests.
    static Paths underRoot(const std::filesystem::path& root)
    {
        return {.support = root / "state", .logs = root / "log", .run = root / "run", .configuration = root / "etc"};
    }
};

} // namespace meridal
