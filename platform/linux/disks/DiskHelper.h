// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/linux/disks/DiskMessages.h"
#include "platform/linux/kernel/HelperProgram.h"

#include <filesystem>
#include <optional>
#include <string>

namespace meridal {

/// How meridal-disks is reached.
struct DiskHelperPlace {
    std::string socket = {};          ///< where it listens; empty: it is started for each conversation
    std::filesystem::path root = "/"; ///< what it is to look for disks in when it is started

    /// Whether there is something to connect to or to start.
    bool isThere() const;
};

/// A conversation about one disk with meridal-disks, the program that alone has the rights to ask disks. It begins with the
/// first question; each has a process of its own at the other end, so that a disk that hangs holds up nobody else.
class DiskHelper {
public:
    /// `path`: of the disk's device folder, as in DiskRecord.
    DiskHelper(DiskHelperPlace place, std::string path) : place_(std::move(place)), path_(std::move(path)) { }

    /// The disk's number is filled in. Waits as long as the disk takes. Besides the errors of an answer: EACCES when the
    /// program cannot be had, ENODEV when it knows no such disk, EPIPE when it has gone or makes no sense; the next question
    /// begins anew then.
    DiskReply ask(DiskRequest request);
    void stop();

private:
    int channel() const { return connection_ ? connection_.get() : process_.channel(); }
    bool begin();
    /// The disk's number in the other end's list, or an errno.
    int find();
    std::optional<DiskReply> say(const DiskRequest& request) const;

    DiskHelperPlace place_;
    std::string path_;
    HelperProgram process_;
    Descriptor connection_;
    std::optional<std::uint32_t> number_;
};

} // namespace meridal
