// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/linux/disks/DiskMessages.h"
#include "platform/linux/disks/DiskReader.h"

#include <filesystem>
#include <memory>
#include <vector>

namespace meridal {

/// What meridal-disks does: answers one conversation about the disks of this machine. Disks are known by their numbers in its
/// own list; nothing that the other end says becomes a path or a command.
class DiskServer {
public:
    explicit DiskServer(const std::filesystem::path& root) : root_(root) { }

    /// Answers until the other end leaves or sends what is no question.
    void serve(int channel);
    DiskReply answer(const DiskRequest& request);
    /// Whether the system has kept a disk's node from us.
    bool wasRefused() const { return wasRefused_; }

private:
    DiskReply list(std::uint32_t number);
    DiskReader* reader(std::uint32_t number);

    RootFolder root_;
    std::vector<DiskRecord> disks_;
    std::unique_ptr<DiskReader> reader_; ///< of the disk that was asked last
    std::uint32_t readerNumber_ = 0;
    bool wasRefused_ = false;
};

/// Answers each who connects to a listening socket in a process of its own, if it is root or the user that this program runs
/// as. Returns when nobody has been there for so many seconds, for 2 when a device was refused: started anew it may be let
/// in, as its service manager knows the classes of devices of that moment.
void serveConnections(int listener, const std::filesystem::path& root, int idleSeconds);

/// Whether the other end of a connection is root or the user of this process.
bool isTrusted(int connection);

} // namespace meridal
