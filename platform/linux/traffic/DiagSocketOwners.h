// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/PacketTap.h"
#include "platform/linux/traffic/InterfaceStack.h"
#include "platform/linux/traffic/SocketDiag.h"
#include "platform/linux/traffic/SocketInodes.h"

#include <filesystem>

namespace meridal {

/// Finds the process behind a flow as the kernel would deliver its packets: the socket by one question to the socket
/// tables, its process by the socket's inode.
class DiagSocketOwners final : public SocketOwners {
public:
    explicit DiagSocketOwners(const std::filesystem::path& root) : inodes_(root) { }

    void beginBatch() override;
    SocketOwner ownerOf(const SocketFlow& flow) override;
    bool search() override;

    /// Questions to the kernel between two batches, at about 3 µs each. What goes beyond is Pending.
    static constexpr int mostQuestions = 1000;

private:
    SocketOwner::Kind ownerOfTunnel(const SocketFlow& flow);

    SocketDiag diag_;
    SocketInodes inodes_;
    InterfaceStack stack_;
    int questions_ = 0;
};

} // namespace meridal
