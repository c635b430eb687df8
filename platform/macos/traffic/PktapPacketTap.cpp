// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/traffic/MacAdapters.h"

#include "base/Runtime.h"
#include "platform/formats/PktapHeader.h"

#include <pcap/pcap.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

/// The system's library has it and its header hides it. Answers 0.
extern "C" int pcap_set_want_pktap(pcap_t* handle, int want);

namespace meridal {

namespace {

constexpr int wholeFrames = 0x40000; ///< bytes; the kernel's own most
constexpr int timeout = 200;         ///< ms
constexpr int interfaceSnapLength = 72;
constexpr int interfaceTimeout = 500; ///< ms

struct HandleCloser {
    void operator()(pcap_t* handle) const { ::pcap_close(handle); }
};
using Handle = std::unique_ptr<pcap_t, HandleCloser>;

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

} // namespace

class PktapPacketTap::Loop {
public:
    Loop(Handle handle, bool isTapped, std::shared_ptr<Sink> sink)
        : handle_(std::move(handle)), sink_(std::move(sink)), isTapped_(isTapped)
    {
    }

    void run()
    {
        // One dispatch is what one read of the kernel's buffer brought; 0 is a time-out.
        int count = 0;
        while (!finished_ && (count = ::pcap_dispatch(handle_.get(), -1, take, reinterpret_cast<u_char*>(this))) >= 0) {
            frames_ += static_cast<std::uint64_t>(count);
            pcap_stat figures{};
            if (::pcap_stats(handle_.get(), &figures) == 0) {
                const auto now = std::uint64_t{figures.ps_drop};
                const std::uint64_t before = dropped_.exchange(now);
                sink_->lost(now > before ? now - before : 0);
            }
            sink_->endBatch();
        }
        if (!finished_) {
            sink_->failed(::pcap_geterr(handle_.get()));
        }
        handle_.reset();
    }
    void finish() { finished_ = true; }
    CaptureStatistics statistics() const { return {frames_, dropped_}; }

private:
    static void take(u_char* user, const pcap_pkthdr* header, const u_char* bytes)
    {
        const auto& loop = *reinterpret_cast<const Loop*>(user);
        if (loop.finished_) {
            return; // the rest of a full buffer, which the next capture sees as well
        }
        const std::uint32_t length = std::max(header->len, header->caplen);
        const CapturedFrame raw{.link = LinkType::Ethernet, .bytes = {bytes, header->caplen}, .length = length};
        if (const auto frame = loop.isTapped_ ? frameBehindPktap(raw.bytes, length) : std::optional(raw)) {
            loop.sink_->frame(*frame);
        }
    }

    Handle handle_;
    std::shared_ptr<Sink> sink_;
    bool isTapped_; ///< frames have the header that names the process
    std::atomic<bool> finished_ = false;
    std::atomic<std::uint64_t> frames_ = 0;
    std::atomic<std::uint64_t> dropped_ = 0;
};

class PktapPacketTap::Running final : public PacketTap::Capture {
public:
    explicit Running(std::shared_ptr<Loop> loop) : loop_(std::move(loop)) { }
    ~Running() override { loop_->finish(); }
    CaptureStatistics statistics() const override { return loop_->statistics(); }

private:
    std::shared_ptr<Loop> loop_;
};

std::unique_ptr<PacketTap::Capture> PktapPacketTap::run(std::shared_ptr<Loop> loop)
{
    runtime_.postGlobal([loop] { loop->run(); });
    return std::make_unique<Running>(std::move(loop));
}

Result<std::unique_ptr<PacketTap::Capture>> PktapPacketTap::captureAll(std::shared_ptr<Sink> sink)
{
    std::array<char, PCAP_ERRBUF_SIZE> error = {};
    Handle handle(::pcap_create("all", error.data()));
    if (!handle) {
        return unexpected(ErrorCode::Unavailable, error.data());
    }
    ::pcap_set_timeout(handle.get(), timeout);
    ::pcap_set_want_pktap(handle.get(), 1);
    ::pcap_set_snaplen(handle.get(), wholeFrames);
    if (const int status = ::pcap_activate(handle.get()); status < 0) {
        const bool isDenied = status == PCAP_ERROR_PERM_DENIED;
        const std::string detail = ::pcap_geterr(handle.get());
        return unexpected(isDenied ? ErrorCode::NotPermitted : ErrorCode::Unavailable,
            detail.empty() ? ::pcap_statustostr(status) : detail);
    }
    // The number under which files know the header, or the one that this system alone gives it.
    const int link = ::pcap_datalink(handle.get());
    if (link != DLT_PKTAP && link != DLT_USER2) {
        return unexpected(ErrorCode::Unavailable, "the tap does not name processes");
    }
    return run(std::make_shared<Loop>(std::move(handle), true, std::move(sink)));
}

Result<std::unique_ptr<PacketTap::Capture>> PktapPacketTap::captureInterface(
    const std::string& name, std::shared_ptr<Sink> sink)
{
    std::array<char, PCAP_ERRBUF_SIZE> error = {};
    Handle handle(::pcap_open_live(name.c_str(), interfaceSnapLength, 0, interfaceTimeout, error.data()));
    if (!handle) {
        return unexpected(ErrorCode::Unavailable, error.data());
    }
    if (::pcap_datalink(handle.get()) != DLT_EN10MB) {
        return unexpected(ErrorCode::InvalidArgument, name + " is no Ethernet");
    }
    return run(std::make_shared<Loop>(std::move(handle), false, std::move(sink)));
}

std::unique_ptr<PacketTap> makePktapPacketTap(Runtime& runtime) { return std::make_unique<PktapPacketTap>(runtime); }

} // namespace meridal
