#pragma once

#include "platform/host/PacketTap.h"

#include <filesystem>
#include <string>

namespace meridal {

class Runtime;

/// Frames through libpcap on "any". The kernel writes them, cut to their headers, into a ring in shared memory; we empty it
/// 25 times a second. A flood therefore costs what the ring holds and no more: the kernel counts what it drops.
class PcapPacketTap final : public PacketTap {
public:
    /// `root` is what holds proc. The runtime must outlive it.
    PcapPacketTap(Runtime& runtime, std::filesystem::path root);

    Result<std::unique_ptr<Capture>> captureAll(std::shared_ptr<Sink> sink) override;
    Result<std::unique_ptr<Capture>> captureInterface(const std::string& name, std::shared_ptr<Sink> sink) override;
    bool followsInterfaces() const override { return true; }
    std::unique_ptr<SocketOwners> makeOwners() override;

private:
    class Loop;
    class Running;

    Runtime& runtime_;
    std::filesystem::path root_;
};

/// Reads a file of captured frames, one batch a file. Absent when it is none, or of a link type that is not decoded.
Result<CaptureStatistics> readCaptureFile(const std::string& path, PacketTap::Sink& sink);

} // namespace meridal
