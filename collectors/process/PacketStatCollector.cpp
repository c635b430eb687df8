// SPDX-License-Identifier: Apache-2.0
#include "collectors/process/PacketStatCollector.h"

#include "collectors/process/ProcessStatCollector.h"
#include "platform/Context.h"
#include "platform/host/Host.h"

#include <utility>

namespace meridal {

PacketStatCollector::PacketStatCollector(Context& context, ProcessStatCollector& processes)
    : context_(context), processes_(processes)
{
    setupObservation_ = context.notifications.observe("STAT_COLLECTION_NETWORK_SETUP_CHANGED", nullptr,
        [this](const void*, const Dictionary&) { networkSetupChanged(); });
}

PacketStatCollector::~PacketStatCollector() = default;

PacketStatCollector& PacketStatCollector::sharedPacketCollector()
{
    // Never destroyed: at exit the context may go first.
    static auto& instance = *new PacketStatCollector(Context::shared(), ProcessStatCollector::sharedProcesses());
    return instance;
}

void PacketStatCollector::startCaputure()
{
    enabled_ = true;
    updateCollectors();
}

void PacketStatCollector::updateCollectors()
{
    if (packetItem_ && !refused_) {
        retire(std::move(packetItem_), ending_);
    }
    packetItem_ = std::make_unique<PacketStatCollectorItem>(context_);
    const auto started = packetItem_->startCaputure();
    refused_ = !started;
    failure_ = started ? std::string() : started.error().message;
}

void PacketStatCollector::stopCapture()
{
    enabled_ = false;
    if (packetItem_) {
        retire(std::move(packetItem_), ending_);
    }
    for (auto& entry : collectors_) {
        retire(std::move(entry.second), endingPorts_);
    }
    collectors_.clear();
    clear();
}

int PacketStatCollector::captureInterface(const CaptureInterface& interface)
{
    auto item = std::make_unique<PacketStatCollectorItem>(context_);
    const int status = item->startCaputureWithInterface(interface);
    if (status >= 0) {
        auto& place = collectors_[interface.bsd];
        if (place) {
            retire(std::move(place), endingPorts_);
        }
        place = std::move(item);
    }
    return status;
}

/// A tap on all interfaces may know only those that were there when it began. One that follows them goes on: a new one would
/// have to find every owner anew, and containers change the setup all the time. One that was refused is tried again when
/// somebody asks: a right is not gained by a change of the network.
void PacketStatCollector::networkSetupChanged()
{
    if (enabled_ && !refused_ && !(isCapturing() && context_.host.packetTap->followsInterfaces())) {
        updateCollectors();
    }
}

/// What it counted still counts, at the next fold: its last batch may be on its way until then.
void PacketStatCollector::retire(std::unique_ptr<PacketStatCollectorItem> item, Items& ending)
{
    item->stop();
    const CaptureStatistics figures = item->statistics();
    retired_.frames += figures.frames;
    retired_.dropped += figures.dropped;
    ending.push_back(std::move(item));
}

bool PacketStatCollector::isCapturing() const { return packetItem_ && !packetItem_->finished(); }

CaptureStatistics PacketStatCollector::statistics() const
{
    CaptureStatistics sum = retired_;
    const auto add = [&sum](const PacketStatCollectorItem& item) {
        const CaptureStatistics figures = item.statistics();
        sum.frames += figures.frames;
        sum.dropped += figures.dropped;
    };
    if (packetItem_) {
        add(*packetItem_);
    }
    for (const auto& entry : collectors_) {
        add(*entry.second);
    }
    return sum;
}

void PacketStatCollector::process()
{
    processes_.clearBandwidth();
    latest_ = {};
    foldProcesses();
    foldPorts();
    processes_.updatePCapBandwidth();
    if (packetItem_ && !packetItem_->failure().empty()) {
        failure_ = packetItem_->failure();
    }
    total_ += latest_;
}

void PacketStatCollector::foldProcesses()
{
    if (packetItem_) {
        packetItem_->take(pstorage_);
    }
    for (const auto& item : ending_) {
        item->take(pstorage_);
    }
    ending_.clear();
    for (const PacketRecord& record : pstorage_.packets.records()) {
        const TrafficShare share{record.downloadBytes, record.uploadBytes, record.linkBytes};
        if (auto* item = processes_.processForPid(record.pid)) {
            item->addTraffic(record.downloadBytes, record.uploadBytes);
            latest_.processes += share;
        } else {
            latest_.unattributed += share; // it came and went between two passes
        }
    }
    latest_.kernel += pstorage_.kernel;
    latest_.unattributed += pstorage_.unattributed;
    latest_.frames += pstorage_.frames;
    pstorage_.clear();
}

/// Captures of single interfaces see what the one of all interfaces sees: they add nothing to the account while that runs.
void PacketStatCollector::foldPorts()
{
    for (const auto& entry : collectors_) {
        entry.second->take(pidcache_);
    }
    for (const auto& item : endingPorts_) {
        item->take(pidcache_);
    }
    endingPorts_.clear();
    if (pidcache_.packets.records().empty()) {
        pidcache_.clear();
        return;
    }
    readConnections();
    for (const PacketRecord& record : pidcache_.packets.records()) {
        const TrafficShare share{record.downloadBytes, record.uploadBytes, record.linkBytes};
        const bool isTaken = record.localPort != 0 && processes_.processPacket(record) != 0;
        if (!packetItem_) {
            (isTaken ? latest_.processes : latest_.unattributed) += share;
        }
    }
    latest_.frames += packetItem_ ? 0 : pidcache_.frames;
    pidcache_.clear();
}

void PacketStatCollector::readConnections()
{
    pids_.clear();
    for (const auto* item : processes_.processes()) {
        pids_.push_back(item->pid);
    }
    const auto rows = context_.host.processConnections->readConnections(pids_);
    for (auto* item : processes_.processes()) {
        if (item->extras) {
            item->extras->connections.clear();
        }
    }
    for (const auto& row : rows) {
        if (auto* item = processes_.processForPid(row.pid)) {
            item->makeExtras().connections.push_back({row.localPort, row.foreignPort});
        }
    }
}

void PacketStatCollector::clear()
{
    pstorage_.clear();
    pidcache_.clear();
    ending_.clear();
    endingPorts_.clear();
}

} // namespace meridal
