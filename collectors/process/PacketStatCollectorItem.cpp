// SPDX-License-Identifier: Apache-2.0
#include "collectors/process/PacketStatCollectorItem.h"

#include "base/Log.h"
#include "base/Runtime.h"
#include "collectors/process/FlowTable.h"
#include "collectors/process/FrameDecoder.h"
#include "platform/Context.h"
#include "platform/host/Host.h"

#include <fmt/format.h>

#include <atomic>
#include <charconv>
#include <mutex>
#include <string_view>
#include <utility>

namespace meridal {

/// Where the capture's thread leaves what the main queue fetches.
class PacketStatCollectorItem::Inbox {
public:
    void put(const TrafficBatch& batch)
    {
        const std::lock_guard lock(mutex_);
        batch_.add(batch);
    }
    void take(TrafficBatch& into)
    {
        const std::lock_guard lock(mutex_);
        into.add(batch_);
        batch_.clear();
    }
    /// The capture was told to end: what it still sees is the next one's to count.
    void close() { isClosed_ = true; }
    bool isClosed() const { return isClosed_; }
    void fail(const std::string& why)
    {
        const std::lock_guard lock(mutex_);
        failure_ = why;
    }
    std::string failure() const
    {
        const std::lock_guard lock(mutex_);
        return failure_;
    }

private:
    mutable std::mutex mutex_;
    TrafficBatch batch_;
    std::string failure_;
    std::atomic<bool> isClosed_ = false;
};

/// Counts frames by process.
class PacketStatCollectorItem::ProcessSink final : public PacketTap::Sink {
public:
    ProcessSink(const Runtime& runtime, std::unique_ptr<SocketOwners> owners, std::shared_ptr<Inbox> inbox)
        : runtime_(runtime), flows_(std::move(owners)), inbox_(std::move(inbox))
    {
    }

    void frame(const CapturedFrame& captured) override
    {
        if (inbox_->isClosed()) {
            return;
        }
        if (const auto frame = decodeFrame(captured)) {
            flows_.count(*frame);
        }
    }
    void lost(std::uint64_t frames) override { flows_.countLost(frames); }
    void endBatch() override
    {
        flows_.settle(runtime_.monotonicTime(), batch_);
        inbox_->put(batch_);
        batch_.clear();
    }
    void failed(const std::string& why) override { inbox_->fail(why); }

private:
    const Runtime& runtime_;
    FlowTable flows_;
    TrafficBatch batch_;
    std::shared_ptr<Inbox> inbox_;
};

/// Counts the frames of one interface by their ports.
class PacketStatCollectorItem::PortSink final : public PacketTap::Sink {
public:
    PortSink(const CaptureInterface& interface, std::shared_ptr<Inbox> inbox)
        : hardware_(hardwareAddressFrom(interface.mac))
        , ipv4_(interface.ipv4)
        , ipv6_(interface.ipv6)
        , inbox_(std::move(inbox))
    {
    }

    void frame(const CapturedFrame& captured) override
    {
        const auto frame = inbox_->isClosed() ? std::nullopt : decodeFrame(captured);
        if (!frame) {
            return;
        }
        const auto& own = frame->isIPv6 ? ipv6_ : ipv4_;
        const bool isReceived = (hardware_ && frame->destinationHardware == *hardware_)
            || (frame->isIP && own && frame->destination == *own);
        const double bytes = frame->isIP ? frame->bytes : 0; // what is not IP has no connection to belong to
        PacketRecord record;
        record.localPort = isReceived ? frame->destinationPort : frame->sourcePort;
        record.foreignPort = isReceived ? frame->sourcePort : frame->destinationPort;
        (isReceived ? record.downloadBytes : record.uploadBytes) = bytes;
        record.linkBytes = frame->linkBytes;
        ++batch_.frames;
        batch_.add(record);
    }
    void lost(std::uint64_t) override { }
    void endBatch() override
    {
        inbox_->put(batch_);
        batch_.clear();
    }
    void failed(const std::string& why) override { inbox_->fail(why); }

private:
    std::optional<std::array<std::uint8_t, 6>> hardware_;
    std::optional<std::array<std::uint8_t, 16>> ipv4_;
    std::optional<std::array<std::uint8_t, 16>> ipv6_;
    TrafficBatch batch_;
    std::shared_ptr<Inbox> inbox_;
};

PacketStatCollectorItem::PacketStatCollectorItem(Context& context)
    : context_(context), inbox_(std::make_shared<Inbox>())
{
}

PacketStatCollectorItem::~PacketStatCollectorItem() { stop(); }

Result<void> PacketStatCollectorItem::startCaputure()
{
    PacketTap& tap = *context_.host.packetTap;
    auto capture = tap.captureAll(std::make_shared<ProcessSink>(context_.runtime, tap.makeOwners(), inbox_));
    if (!capture) {
        context_.log.error(fmt::format("error creating pcap '{}'", capture.error().message));
        finished_ = true;
        return unexpected(capture.error().code, capture.error().message);
    }
    capture_ = std::move(*capture);
    return {};
}

int PacketStatCollectorItem::startCaputureWithInterface(const CaptureInterface& interface)
{
    auto capture =
        context_.host.packetTap->captureInterface(interface.bsd, std::make_shared<PortSink>(interface, inbox_));
    if (!capture) {
        if (capture.error().code
            != ErrorCode::InvalidArgument) { // that one is no Ethernet, which nobody needs to hear of
            context_.log.error(fmt::format("Unable to start listening on interface {} -2", interface.bsd));
        }
        finished_ = true;
        return -1;
    }
    capture_ = std::move(*capture);
    return 0;
}

void PacketStatCollectorItem::stop()
{
    inbox_->close();
    last_ = statistics();
    capture_.reset();
    finished_ = true;
}

bool PacketStatCollectorItem::finished() const { return finished_ || !inbox_->failure().empty(); }

std::string PacketStatCollectorItem::failure() const { return inbox_->failure(); }

CaptureStatistics PacketStatCollectorItem::statistics() const { return capture_ ? capture_->statistics() : last_; }

void PacketStatCollectorItem::take(TrafficBatch& into) { inbox_->take(into); }

std::optional<std::array<std::uint8_t, 6>> hardwareAddressFrom(const std::string& text)
{
    std::array<std::uint8_t, 6> address = {};
    const char* at = text.data();
    const char* const end = at + text.size();
    for (std::size_t i = 0; i < address.size(); ++i) {
        if (i > 0 && (at == end || *at++ != ':')) {
            return std::nullopt;
        }
        const char* const begin = at;
        const auto result = std::from_chars(at, end, address.at(i), 16);
        at = result.ptr;
        if (result.ec != std::errc() || at - begin > 2) {
            return std::nullopt;
        }
    }
    return at == end ? std::optional(address) : std::nullopt;
}

} // namespace meridal
