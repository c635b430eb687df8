#pragma once

#include "platform/host/ProcessConnections.h"

#include <libproc.h>

#include <vector>

namespace meridal {

/// The TCP and UDP sockets in the descriptor tables of processes: proc_pidinfo(PROC_PIDLISTFDS) and proc_pidfdinfo.
class LibprocConnections final : public ProcessConnections {
public:
    std::span<const ConnectionRecord> readConnections(std::span<const std::int32_t> pids) override;

private:
    std::span<const proc_fdinfo> listDescriptors(std::int32_t pid);
    void readSocket(std::int32_t pid, std::int32_t descriptor);

    std::vector<proc_fdinfo> descriptors_; ///< kept for its memory
    std::vector<ConnectionRecord> rows_;
};

} // namespace meridal
