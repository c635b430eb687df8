// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Result.h"

#include <filesystem>
#include <memory>
#include <string>

namespace meridal {

/// A daemon for one person and one run of a command, under a temporary root. Ended, and all that it wrote removed, when this
/// is destroyed.
class OwnDaemon {
public:
    /// Starts meridald, the one beside this program or else the one in PATH. It serves a moment later.
    static Result<std::unique_ptr<OwnDaemon>> start();
    ~OwnDaemon();
    OwnDaemon(const OwnDaemon&) = delete;
    OwnDaemon& operator=(const OwnDaemon&) = delete;

    std::string socketPath() const { return (root_ / "run" / "daemon.sock").string(); }

private:
    explicit OwnDaemon(std::filesystem::path root) : root_(std::move(root)) { }
    /// Why it could not be started; empty when it was.
    std::string spawn();

    std::filesystem::path root_;
    int process_ = 0; ///< 0: none
    int life_ = -1;   ///< the end of a pipe whose other end is closed by its death
};

} // namespace meridal
