#pragma once

#include "platform/host/PacketTap.h"

#include <string>

namespace meridal {

class Runtime;

/// Frames through libpcap in the mode in which the tap's header names the process. One blocking loop a capture, on a
/// global queue; it ends with the packet or time-out after it was told to.
class PktapPacketTap final : public PacketTap {
public:
    /// The runtime must outlive it.
    explicit PktapPacketTap(Runtime& runtime) : runtime_(runtime) { }

    Result<std::unique_ptr<Capture>> captureAll(std::shared_ptr<Sink> sink) override;
    Result<std::unique_ptr<Capture>> captureInterface(const std::string& name, std::shared_ptr<Sink> sink) override;
    /// The kernel adds later interfaces to the tap, but not known to be so on every release.
    bool followsInterfaces() const override { return false; }
    std::unique_ptr<SocketOwners> makeOwners() override { return nullptr; }

private:
    class Loop;
    class Running;

    std::unique_ptr<Capture> run(std::shared_ptr<Loop> loop);

    Runtime& runtime_;
};

} // namespace meridal
