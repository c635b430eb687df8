#pragma once

#include "platform/host/NetworkStatistics.h"

namespace meridal {

class Runtime;

/// The kernel control "com.apple.network.statistics": a datagram socket of the system family. Main queue only.
class ControlNetworkStatistics final : public NetworkStatistics {
public:
    /// The runtime must outlive it.
    explicit ControlNetworkStatistics(Runtime& runtime) : runtime_(runtime) { }

    Result<std::unique_ptr<Channel>> open(Received received) override;

private:
    class ControlChannel;

    Runtime& runtime_;
};

} // namespace meridal
