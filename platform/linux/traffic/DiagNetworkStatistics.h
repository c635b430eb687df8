#pragma once

#include "platform/NetworkStatisticsMessages.h"
#include "platform/host/NetworkStatistics.h"

#include <filesystem>

namespace meridal {

class Runtime;

/// The kernel's account of TCP connections in the messages of macOS's newest releases: sources are sockets, by their
/// cookie, and counts are tcp_info's bytes. Linux counts no bytes of UDP sockets, so there are no sources of that
/// provider. Main queue only.
class DiagNetworkStatistics final : public NetworkStatistics {
public:
    /// `root` is what holds proc. The runtime must outlive it.
    DiagNetworkStatistics(Runtime& runtime, std::filesystem::path root);

    Result<std::unique_ptr<Channel>> open(Received received) override;

    static constexpr StatisticsFormat format = StatisticsFormat::Release14;

private:
    class TcpChannel;

    Runtime& runtime_;
    std::filesystem::path root_;
};

} // namespace meridal
