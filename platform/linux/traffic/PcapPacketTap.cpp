// SPDX-License-Identifier: Apache-2.0
#include "base/Runtime.h"
#include "platform/linux/traffic/DiagSocketOwners.h"
#include "platform/linux/traffic/LinuxTraffic.h"

#include <linux/filter.h>
#include <pcap/pcap.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <optional>
#include <utility>

namespace meridal {

namespace {

/// From the IP header on: the longest one of IPv4, or that of IPv6 with some extension headers, and the ports.
constexpr std::uint32_t headersOnly = 112;
constexpr int snapLength = 160;     ///< with the cooked header in front
constexpr int ringBytes = 16 << 20; ///< more than a second of 100,000 frames a second, for a machine that is late
constexpr int blockTimeout = 20;    ///< ms after which the kernel shows a block that is not full
/// s. A socket must still be there when its first frame is looked at: this is how short-lived it may be.
constexpr double emptyInterval = 0.04;
constexpr double emptyLeeway = 0.01; ///< s
constexpr int mostFramesAtOnce = 50'000;

/// As the per-interface capture has always been opened.
constexpr int interfaceSnapLength = 72;
constexpr int interfaceTimeout = 500; ///< ms

struct HandleCloser {
    void operator()(pcap_t* handle) const { ::pcap_close(handle); }
};
using Handle = std::unique_ptr<pcap_t, HandleCloser>;

std::optional<LinkType> linkTypeOf(pcap_t* handle)
{
    switch (::pcap_datalink(handle)) {
    case DLT_LINUX_SLL:
        return LinkType::LinuxCooked;
    case DLT_LINUX_SLL2:
        return LinkType::LinuxCooked2;
    default:
        return std::nullopt;
    }
}

Unexpected failureOf(int status, pcap_t* handle)
{
    const bool isDenied = status == PCAP_ERROR_PERM_DENIED || status == PCAP_ERROR_PROMISC_PERM_DENIED;
    const std::string detail = ::pcap_geterr(handle);
    return unexpected(isDenied ? ErrorCode::NotPermitted : ErrorCode::Unavailable,
        detail.empty() ? ::pcap_statustostr(status) : detail);
}

/// Has the kernel copy no more than the headers. The library's own snap length cuts what is in the ring already, which a few
/// large frames would have filled.
bool copyHeadersOnly(pcap_t* handle)
{
    sock_filter takeAll = BPF_STMT(BPF_RET | BPF_K, headersOnly);
    const sock_fprog program{.len = 1, .filter = &takeAll};
    return ::setsockopt(::pcap_fileno(handle), SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof(program)) == 0;
}

/// What pcap_dispatch hands each frame to.
struct Feed {
    PacketTap::Sink& sink;
    LinkType link;

    static void take(u_char* user, const pcap_pkthdr* header, const u_char* bytes)
    {
        const auto& feed = *reinterpret_cast<const Feed*>(user);
        feed.sink.frame({feed.link, {bytes, header->caplen}, std::max(header->len, header->caplen)});
    }
};

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

} // namespace

/// The capture itself, emptied on a queue of its own.
class PcapPacketTap::Loop {
public:
    Loop(Handle handle, LinkType link, std::shared_ptr<Sink> sink)
        : handle_(std::move(handle)), feed_{*sink, link}, sink_(std::move(sink))
    {
    }

    void setTimer(std::unique_ptr<Timer> timer) { timer_ = std::move(timer); }
    void empty()
    {
        if (!handle_) {
            return;
        }
        const int count =
            ::pcap_dispatch(handle_.get(), mostFramesAtOnce, Feed::take, reinterpret_cast<u_char*>(&feed_));
        if (count < 0) {
            sink_->failed(::pcap_geterr(handle_.get()));
            end();
            return;
        }
        frames_ += static_cast<std::uint64_t>(count);
        pcap_stat figures{};
        if (::pcap_stats(handle_.get(), &figures) == 0) {
            const auto now = std::uint64_t{figures.ps_drop};
            const std::uint64_t before = dropped_.exchange(now);
            sink_->lost(now > before ? now - before : 0);
        }
        sink_->endBatch(); // also of nothing: something may still wait for its owner
    }
    void end()
    {
        timer_.reset();
        handle_.reset();
    }
    CaptureStatistics statistics() const { return {frames_, dropped_}; }

private:
    Handle handle_;
    Feed feed_;
    std::shared_ptr<Sink> sink_;
    std::unique_ptr<Timer> timer_;
    std::atomic<std::uint64_t> frames_ = 0;
    std::atomic<std::uint64_t> dropped_ = 0;
};

class PcapPacketTap::Running final : public PacketTap::Capture {
public:
    Running(Runtime& runtime, std::shared_ptr<Loop> loop)
        : loop_(std::move(loop)), queue_(runtime.makeSerialQueue("PacketCapture"))
    {
        queue_->post([&runtime, loop = loop_, queue = queue_] {
            const TimerSchedule schedule{.first = emptyInterval, .interval = emptyInterval, .leeway = emptyLeeway};
            // The timer is the loop's and must not keep it: it would never end.
            loop->setTimer(runtime.startTimer(*queue, schedule, [weak = std::weak_ptr<Loop>(loop)] {
                if (const auto alive = weak.lock()) {
                    alive->empty();
                }
            }));
        });
    }
    ~Running() override
    {
        // There, because a timer ends on its own queue and a batch may be under way.
        queue_->post([loop = loop_, queue = queue_] { loop->end(); });
    }
    CaptureStatistics statistics() const override { return loop_->statistics(); }

private:
    std::shared_ptr<Loop> loop_;
    std::shared_ptr<Queue> queue_;
};

PcapPacketTap::PcapPacketTap(Runtime& runtime, std::filesystem::path root) : runtime_(runtime), root_(std::move(root))
{
}

Result<std::unique_ptr<PacketTap::Capture>> PcapPacketTap::captureAll(std::shared_ptr<Sink> sink)
{
    std::array<char, PCAP_ERRBUF_SIZE> error = {};
    Handle handle(::pcap_create("any", error.data()));
    if (!handle) {
        return unexpected(ErrorCode::Unavailable, error.data());
    }
    ::pcap_set_snaplen(handle.get(), snapLength);
    ::pcap_set_timeout(handle.get(), blockTimeout);
    ::pcap_set_buffer_size(handle.get(), ringBytes);
    if (const int status = ::pcap_activate(handle.get()); status < 0) {
        return failureOf(status, handle.get());
    }
    ::pcap_set_datalink(handle.get(), DLT_LINUX_SLL2); // names the interface; without it the older header serves
    const auto link = linkTypeOf(handle.get());
    if (!link || ::pcap_setnonblock(handle.get(), 1, error.data()) != 0 || !copyHeadersOnly(handle.get())) {
        return unexpected(ErrorCode::Unavailable, link ? error.data() : "unknown link type");
    }
    auto loop = std::make_shared<Loop>(std::move(handle), *link, std::move(sink));
    return std::unique_ptr<Capture>(std::make_unique<Running>(runtime_, std::move(loop)));
}

Result<std::unique_ptr<PacketTap::Capture>> PcapPacketTap::captureInterface(
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
    if (::pcap_setnonblock(handle.get(), 1, error.data()) != 0) {
        return unexpected(ErrorCode::Unavailable, error.data());
    }
    auto loop = std::make_shared<Loop>(std::move(handle), LinkType::Ethernet, std::move(sink));
    return std::unique_ptr<Capture>(std::make_unique<Running>(runtime_, std::move(loop)));
}

std::unique_ptr<SocketOwners> PcapPacketTap::makeOwners() { return std::make_unique<DiagSocketOwners>(root_); }

std::unique_ptr<PacketTap> makePcapPacketTap(Runtime& runtime, std::filesystem::path root)
{
    return std::make_unique<PcapPacketTap>(runtime, std::move(root));
}

} // namespace meridal
