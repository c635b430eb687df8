// SPDX-License-Identifier: Apache-2.0
#include "collectors/network/NetworkStatCollector.h"

#include "base/NotificationCenter.h"
#include "base/Text.h"
#include "collectors/network/NetworkStatCollectorItem.h"
#include "database/HistoryDatabaseItem.h"
#include "platform/Context.h"

#include <algorithm>
#include <map>
#include <utility>

namespace meridal {

namespace {

NetworkStatCollectorItem& interfaceOf(const std::shared_ptr<StatCollectorItem>& item)
{
    return static_cast<NetworkStatCollectorItem&>(*item); // makeItem() makes no others
}

bool isAirport(const NetworkStatCollectorItem& item) { return lowercase(item.hardware()) == "airport"; }

bool isHardware(InterfaceKind kind)
{
    using enum InterfaceKind;
    return kind == Ethernet || kind == WiFi || kind == Cellular || kind == Bluetooth;
}

} // namespace

NetworkStatCollector::NetworkStatCollector(Context& context, HistoryDatabaseController& databases)
    : StatCollector(context, "NetworkStatCollector"), databases_(databases)
{
}

NetworkStatCollector::~NetworkStatCollector() = default;

// Interfaces

std::shared_ptr<StatCollectorItem> NetworkStatCollector::makeItem()
{
    return std::make_shared<NetworkStatCollectorItem>(context());
}

std::shared_ptr<NetworkStatCollectorItem> NetworkStatCollector::interfaceWithBSD(const std::string& name)
{
    return std::static_pointer_cast<NetworkStatCollectorItem>(itemWithKey(validUtf8(name)));
}

void NetworkStatCollector::takeReading(const NetworkReading& reading)
{
    bool changed = updateItems(reading);
    changed = changed || reading.primary != primary_;
    refreshPrimarySettings(reading);
    if (bandwidthMonitoringEnabled_ && bandwidth_) {
        bandwidth_->update(reading, wifiMap_);
    }
    if (updaterFinishBlock()) {
        updaterFinishBlock()(*this);
    }
    if (changed) {
        context().notifications.post(setupChanged, this);
    }
}

/// Items follow their interface by the kernel's number, so that one that gets another name stays the same item.
bool NetworkStatCollector::updateItems(const NetworkReading& reading)
{
    std::map<std::int32_t, std::shared_ptr<StatCollectorItem>> known;
    for (const auto& item : items()) {
        item->setExists(false);
        known.emplace(interfaceOf(item).record().index, item);
    }
    bool changed = false;
    const double now = context().runtime.monotonicTime();
    for (const InterfaceRecord& record : reading.interfaces) {
        const auto same = known.find(record.index);
        std::shared_ptr<StatCollectorItem> item = same == known.end() ? makeItem() : same->second;
        if (same == known.end()) {
            item->setParent(this);
            item->config() = config();
            mutableItems().push_back(item);
        }
        item->setKey(validUtf8(record.name));
        item->setExists(true);
        interfaceOf(item).setPrimary(reading.primary && reading.primary->interfaceIndex == record.index);
        changed = interfaceOf(item).update(record, now) || changed;
    }
    return removeOldItems() || changed;
}

void NetworkStatCollector::refreshPrimarySettings(const NetworkReading& reading)
{
    if (reading.primary != primary_) {
        tellPrimary(reading.primary);
    }
    refreshWifi();
}

/// On one interface a change of name or router leaves what else is known of it, as its Wi-Fi network.
void NetworkStatCollector::tellPrimary(const std::optional<PrimaryService>& primary)
{
    if (!primary || !primary_ || primary->interfaceIndex != primary_->interfaceIndex) {
        primarySettings_ = Dictionary::object();
    }
    primary_ = primary;
    if (primary_) {
        primarySettings_["interface"] = validUtf8(primary_->interfaceName);
        primarySettings_.erase("router");
        if (primary_->router) {
            primarySettings_["router"] = textOf(*primary_->router);
        }
    }
}

void NetworkStatCollector::refreshWifi()
{
    std::erase_if(wifiMap_, [this](const auto& entry) {
        const auto item = interfaceWithBSD(entry.first);
        return !item || !isAirport(*item);
    });
    joinedWifi_.clear();
    for (const auto& entry : items()) {
        const NetworkStatCollectorItem& item = interfaceOf(entry);
        if (!isAirport(item)) {
            continue;
        }
        const std::string& name = item.record().name;
        const auto identity = wirelessIdentity(name);
        const bool isJoined = identity && identity->bssid && identity->ssid;
        joinedWifi_[name] = isJoined ? *identity : WirelessIdentity{};
        if (!identity) {
            wifiMap_[name] = {};
            continue;
        }
        if (item.primary() && identity->bssid) {
            const auto before = text(primarySettings_, "wifi-bssid");
            primaryNetworkChanges_ += before && *before != *identity->bssid ? 1U : 0U;
            primarySettings_["wifi-bssid"] = validUtf8(*identity->bssid);
        }
        if (isJoined) { // between two networks it has neither, and its traffic is still that of the old one
            wifiMap_[name] = *identity;
        }
    }
}

// Bandwidth

void NetworkStatCollector::setBandwidthDataasePath(std::string path)
{
    bandwidthDataasePath_ = std::move(path);
    bandwidth_.reset();
    bandwidthDatabase_.reset();
    if (!bandwidthDataasePath_.empty()) {
        bandwidthDatabase_ = std::make_unique<BandwidthDatabase>(context(), databases_, bandwidthDataasePath_);
        bandwidth_ = std::make_unique<BandwidthAccount>(context(), *bandwidthDatabase_);
    }
}

void NetworkStatCollector::prepareBandwidthDatabase()
{
    if (bandwidthDatabase_) {
        bandwidthDatabase_->prepare();
    }
}

void NetworkStatCollector::prepareBandwidthMonitoring()
{
    if (bandwidthDatabase_) {
        bandwidthDatabase_->loadMaps();
        bandwidth_->start();
    }
}

std::int64_t NetworkStatCollector::identifierForInterface(const std::string& name)
{
    return bandwidthDatabase_ ? bandwidthDatabase_->identifierForInterface(name) : 0;
}

std::int64_t NetworkStatCollector::identifierForBSSID(
    const std::optional<std::string>& bssid, const std::optional<std::string>& name)
{
    return bandwidthDatabase_ ? bandwidthDatabase_->identifierForBSSID(bssid, name) : -1;
}

void NetworkStatCollector::saveBandwidth(Task written)
{
    if (bandwidth_) {
        bandwidth_->save(std::move(written));
    } else if (written) {
        context().runtime.mainQueue().post(std::move(written));
    }
}

void NetworkStatCollector::readBandwidthTotals(
    BandwidthQuestion question, std::function<void(std::optional<BandwidthAnswer>)> reply)
{
    if (!bandwidthDatabase_) {
        return reply(std::nullopt);
    }
    if (!bandwidthDatabase_->mapsLoaded()) { // a moment after the start, or the file cannot be read
        bandwidthDatabase_->loadMaps([this, question = std::move(question), reply = std::move(reply)] {
            bandwidthDatabase_->mapsLoaded() ? readBandwidthTotals(question, reply) : reply(std::nullopt);
        });
        return;
    }
    BandwidthMaps maps{
        .interfaces = bandwidthDatabase_->interfaceMap(), .networks = bandwidthDatabase_->wifiMap(), .hardware = {}};
    std::vector<BandwidthRow> running;
    for (const auto& [name, item] : bandwidth_->items()) {
        if (isHardware(item.kind)) {
            maps.hardware.push_back(item.interfaceIdentifier);
        }
        const BandwidthAmount amount = item.amount();
        if (item.interfaceIdentifier != 0 && BandwidthAccount::isWorthARow(amount)) {
            running.push_back({.start = item.start,
                .end = item.lastUpdate,
                .interface = item.interfaceIdentifier,
                .network = item.networkIdentifier,
                .amount = amount});
        }
    }
    bandwidthDatabase_->file()->queryDatabaseAsync(
        [question = std::move(question), maps = std::move(maps), running = std::move(running), reply = std::move(reply),
            &main = context().runtime.mainQueue()](SQLiteConnection& file) {
            main.post([reply, answer = meridal::readBandwidthTotals(file, question, maps, running)] { reply(answer); });
        });
}

const BandwidthAccount::Items& NetworkStatCollector::bandwidthItems() const
{
    static const BandwidthAccount::Items none;
    return bandwidth_ ? bandwidth_->items() : none;
}

const std::vector<BandwidthDatabase::InterfaceRow>& NetworkStatCollector::bandwidthInterfaceMap() const
{
    static const std::vector<BandwidthDatabase::InterfaceRow> none;
    return bandwidthDatabase_ ? bandwidthDatabase_->interfaceMap() : none;
}

const std::vector<BandwidthDatabase::WifiRow>& NetworkStatCollector::bandwidthWifiMap() const
{
    static const std::vector<BandwidthDatabase::WifiRow> none;
    return bandwidthDatabase_ ? bandwidthDatabase_->wifiMap() : none;
}

std::vector<WifiTraffic::Network> NetworkStatCollector::wifiTraffic() const
{
    return bandwidth_ ? bandwidth_->wifiTraffic().networks() : std::vector<WifiTraffic::Network>();
}

double NetworkStatCollector::nextBandwidthUpdateTime() const { return bandwidth_ ? bandwidth_->nextUpdateTime() : 0; }

} // namespace meridal
