// SPDX-License-Identifier: Apache-2.0
#include "collectors/network/BandwidthAccount.h"

#include "platform/Context.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace meridal {

namespace {

/// The first boundary of the grid that is not before this moment.
double boundaryAfter(double now) { return std::ceil(now / BandwidthAccount::period) * BandwidthAccount::period; }

const InterfaceRecord* findByIndex(const NetworkReading& reading, std::int32_t index)
{
    const auto record = std::lower_bound(reading.interfaces.begin(), reading.interfaces.end(), index,
        [](const InterfaceRecord& one, std::int32_t wanted) { return one.index < wanted; });
    return record != reading.interfaces.end() && record->index == index ? &*record : nullptr;
}

} // namespace

BandwidthAccount::BandwidthAccount(Context& context, BandwidthDatabase& database)
    : context_(context), database_(database)
{
    start();
}

void BandwidthAccount::start() { nextUpdateTime_ = boundaryAfter(context_.runtime.wallTime()); }

void BandwidthAccount::update(const NetworkReading& reading, const WifiMap& wifi)
{
    const double now = context_.runtime.wallTime();
    noticeClockStep(now);
    noteSharedAddresses(reading);
    takeLastWords(reading.gone, now);
    moveRenamed(reading, now);
    bool networkChanged = false;
    for (const InterfaceRecord& record : reading.interfaces) {
        networkChanged = addReading(record, wifi, now) || networkChanged;
    }
    if (networkChanged) {
        flushAll(now);
        for (auto& [name, item] : items_) {
            if (const auto joined = wifi.find(name); joined != wifi.end()) {
                joinNetwork(item, joined->second, true);
            }
        }
    }
    if (now > nextUpdateTime_) {
        passBoundary(reading, now);
    }
    database_.retry();
}

/// A clock that was set back would leave the next boundary far ahead, and rows that end before they start. The periods
/// end by the clock as it was, and start over by the clock as it is.
void BandwidthAccount::noticeClockStep(double now)
{
    const bool steppedBack = lastWall_ > 0 && now < lastWall_;
    if (steppedBack || nextUpdateTime_ > boundaryAfter(now)) {
        for (auto& [name, item] : items_) {
            flush(item, std::max(item.start, item.lastUpdate), now);
        }
        database_.commitLater();
        start();
        for (auto& [name, item] : items_) {
            item.end = nextUpdateTime_;
        }
    }
    lastWall_ = now;
}

// Interfaces that come, go and change their names

std::optional<HardwareAddress> BandwidthAccount::identityOf(const InterfaceRecord& record) const
{
    const auto& address = record.permanentAddress;
    return address && sharedAddresses_.count(*address) == 0 ? address : std::nullopt;
}

bool BandwidthAccount::isSame(const Item& item, const InterfaceRecord& record) const
{
    const auto address = identityOf(record);
    return !item.address || !address || item.address == address;
}

void BandwidthAccount::noteSharedAddresses(const NetworkReading& reading)
{
    std::set<HardwareAddress> seen;
    for (const InterfaceRecord& record : reading.interfaces) {
        if (record.permanentAddress && !seen.insert(*record.permanentAddress).second) {
            sharedAddresses_.insert(*record.permanentAddress);
        }
    }
}

/// What interfaces carried after the reading before, until they went.
void BandwidthAccount::takeLastWords(const std::vector<InterfaceRecord>& gone, double now)
{
    for (const InterfaceRecord& record : gone) {
        const auto item = std::find_if(
            items_.begin(), items_.end(), [&](const auto& entry) { return entry.second.index == record.index; });
        if (item != items_.end() && record.hasCounters) {
            count(item->second, record, now);
        }
    }
}

void BandwidthAccount::moveRenamed(const NetworkReading& reading, double now)
{
    // All that were renamed leave their old names first: two interfaces may have swapped theirs.
    std::vector<std::pair<Item, const InterfaceRecord*>> renamed;
    for (auto entry = items_.begin(); entry != items_.end();) {
        const InterfaceRecord* record = findByIndex(reading, entry->second.index);
        if (!record || record->name == entry->first || !isSame(entry->second, *record)) {
            ++entry;
            continue;
        }
        renamed.emplace_back(std::move(entry->second), record);
        entry = items_.erase(entry);
    }
    for (auto& [item, record] : renamed) {
        if (!item.address) { // known by its name alone, so under the new one it is another
            flush(item, now, now);
        }
        if (const auto former = items_.find(record->name); former != items_.end()) {
            flush(former->second, now, now);
            items_.erase(former);
        }
        item.key = record->name;
        item.interfaceIdentifier = 0;
        items_.emplace(record->name, std::move(item));
    }
}

bool BandwidthAccount::addReading(const InterfaceRecord& record, const WifiMap& wifi, double now)
{
    if (!record.hasCounters) {
        return false;
    }
    if (const auto former = items_.find(record.name); former != items_.end() && !isSame(former->second, record)) {
        flush(former->second, now, now); // other hardware has its name now
        items_.erase(former);
    }
    const auto [entry, isNew] = items_.try_emplace(record.name);
    Item& item = entry->second;
    if (isNew) {
        item.key = record.name;
        item.start = now;
        item.end = nextUpdateTime_;
    } else if (item.index != record.index) { // replugged: its counters began anew, even if they are already ahead
        item.endRun(static_cast<double>(record.bytesSent), static_cast<double>(record.bytesReceived));
    }
    item.index = record.index;
    item.kind = record.kind;
    item.address = identityOf(record);
    const auto joined = wifi.find(record.name);
    const bool networkChanged = joined != wifi.end() && !joinNetwork(item, joined->second, false);
    count(item, record, now);
    // Every container brings a virtual interface of a new name, whose number would stay in the file for ever.
    const bool needsNumber = record.kind != InterfaceKind::Virtual || isWorthARow(item.amount());
    if (item.interfaceIdentifier == 0 && needsNumber) {
        item.interfaceIdentifier = database_.identifierForInterface(item.key, item.address);
        if (record.kind == InterfaceKind::Virtual) {
            database_.commitLater(); // whoever asks for totals finds its name in the file
        }
    }
    return networkChanged;
}

/// Whatever network it is on now has carried what came since the last reading, as in the rows.
void BandwidthAccount::count(Item& item, const InterfaceRecord& record, double now)
{
    const BandwidthAmount before = item.amount();
    item.addReading(static_cast<double>(record.bytesSent), static_cast<double>(record.bytesReceived), now);
    const BandwidthAmount after = item.amount();
    wifiTraffic_.add(item.wifiName, item.wifiBSSID,
        {.upload = after.upload - before.upload, .download = after.download - before.download});
}

/// Takes note of the network that an interface is on. False when it has left another, whose traffic must be stored first.
bool BandwidthAccount::joinNetwork(Item& item, const WirelessIdentity& identity, bool leaving)
{
    if (item.wifiBSSID && item.wifiBSSID != identity.bssid && !leaving) {
        return false;
    }
    item.wifiBSSID = identity.bssid;
    item.wifiName = identity.ssid;
    item.networkIdentifier = database_.identifierForBSSID(identity.bssid, identity.ssid);
    return true;
}

// Rows

void BandwidthAccount::flush(Item& item, double end, double nextStart)
{
    const BandwidthAmount amount = item.takeAmount();
    if (isWorthARow(amount)) {
        database_.addSample({.interface = item.key,
            .address = item.address,
            .bssid = item.wifiBSSID,
            .networkName = item.wifiName,
            .start = item.start,
            .end = std::max(item.start, end),
            .upload = amount.upload,
            .download = amount.download});
    }
    item.start = nextStart;
}

void BandwidthAccount::flushAll(double end)
{
    for (auto& [name, item] : items_) {
        flush(item, end, end);
    }
    database_.commitLater();
}

void BandwidthAccount::passBoundary(const NetworkReading& reading, double now)
{
    const double next = boundaryAfter(now);
    // After a sleep, or a clock set ahead, the old boundary may be hours ago: the next row is not about those.
    const double nextStart = std::max(nextUpdateTime_, next - period);
    for (auto& [name, item] : items_) {
        flush(item, item.end, nextStart);
        item.end = next;
    }
    // Virtual interfaces come and go by the thousand under new names. One that comes back begins a new run anyway.
    std::erase_if(items_, [&](const auto& entry) { return !findByIndex(reading, entry.second.index); });
    nextUpdateTime_ = next;
    database_.commitLater();
}

void BandwidthAccount::save(Task written)
{
    const double now = context_.runtime.wallTime();
    for (auto& [name, item] : items_) {
        flush(item, now, now);
    }
    database_.commit(std::move(written));
}

} // namespace meridal
