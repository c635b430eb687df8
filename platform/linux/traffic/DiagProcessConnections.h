#pragma once

#include "platform/host/ProcessConnections.h"
#include "platform/linux/traffic/SocketDiag.h"
#include "platform/linux/traffic/SocketInodes.h"

#include <filesystem>
#include <vector>

namespace meridal {

/// The sockets of all processes: the kernel's tables, joined with /proc/PID/fd by inode.
class DiagProcessConnections final : public ProcessConnections {
public:
    /// `root` is what holds proc.
    explicit DiagProcessConnections(const std::filesystem::path& root) : sockets_(root / "proc") { }

    std::span<const ConnectionRecord> readConnections(std::span<const std::int32_t> pids) override;

private:
    SocketDiag diag_;
    ProcSockets sockets_;
    std::vector<ConnectionRecord> rows_;
};

} // namespace meridal
