// SPDX-License-Identifier: Apache-2.0
#include "collectors/disks/SMARTStatCollector.h"

#include "base/SharedInstance.h"
#include "base/Text.h"
#include "collectors/disks/DiskDiscovery.h"
#include "database/HistoryDatabaseController.h"
#include "platform/Context.h"
#include "platform/host/Host.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <utility>

namespace meridal {

namespace {

constexpr double frequency = 30;              ///< s between updates for clients
constexpr std::int64_t sequenceInterval = 30; ///< turns of the one-second clock

std::optional<SMARTRequest> ifDue(SMARTStatCollectorItem& item)
{
    return item.isDue() ? std::optional(item.beginReading()) : std::nullopt;
}

} // namespace

/// One round of readings: who wants to know when it is over, and how many disks it waits for.
struct SMARTStatCollector::Round {
    std::vector<Task> done;
    std::size_t waiting = 0;
    bool finished = false;
};

SMARTStatCollector::SMARTStatCollector(Context& context)
    : StatCollector(context, "SMARTStatCollector")
    , history_(context,
          {.description = description(),
              .columns = {"temperature", "wear"}, // °C, % of the rated life; NULL where a disk does not tell it
              .storageType = StorageType::Items,
              .dbTablePrefix = "disk",
              .dbpath = context.paths.support / "disk-history.db",
              .dbpathLong = context.paths.support / "disk-history-long.db"})
    , recordedTemperatures_(context.runtime, "disks", {"temperature"})
    , recordedWear_(context.runtime, "wear", {"wear"})
{
    config() = {{"itemAttributeKeys", {"uuid"}}, {"xmlUseMasterID", true}, {"xmlNoSamples", true}};
    observation_ = context.host.disks->observe([this] { disksChanged(); });
}

SMARTStatCollector::~SMARTStatCollector() = default;

SMARTStatCollector& SMARTStatCollector::sharedSMARTCollector()
{
    auto& instance = sharedInstance<SMARTStatCollector>();
    if (!instance) {
        instance = std::make_unique<SMARTStatCollector>(Context::shared());
    }
    return *instance;
}

void SMARTStatCollector::cleanupShared()
{
    auto& instance = sharedInstance<SMARTStatCollector>();
    if (instance) {
        instance->cleanup();
        instance.reset();
    }
}

// Discovery

void SMARTStatCollector::disksChanged()
{
    needToReload_ = true;
    if (isWanted()) {
        loadDisks();
    }
}

void SMARTStatCollector::loadDisks()
{
    discoverDisks();
    beginRound({},
        [](SMARTStatCollectorItem& item) { return item.state() == DiskState::Unread ? ifDue(item) : std::nullopt; });
}

void SMARTStatCollector::discoverDisks()
{
    needToReload_ = false;
    for (const auto& item : items()) {
        item->setExists(false);
    }
    const std::vector<DiskRecord> found = context().host.disks->disks();
    // Those that stay in their places come first: no other one of the same serial number may take over what they are.
    for (const bool staying : {true, false}) {
        for (const DiskRecord& disk : found) {
            const auto serial = serialOfDisk(disk);
            if (serial && (diskAt(disk, *serial) != nullptr) == staying) {
                adoptDisk(disk, *serial);
            }
        }
    }
    removeOldItems();
    notifyDelegates();
}

SMARTStatCollector::ItemPointer SMARTStatCollector::diskAt(const DiskRecord& disk, const std::string& serial) const
{
    const auto all = disks();
    const auto found = std::find_if(all.begin(), all.end(),
        [&](const auto& item) { return item->serial() == serial && item->object().path == disk.path; });
    return found == all.end() ? nullptr : *found;
}

/// The item of a disk that is in a new place. Boxes for two disks are known to give both the same serial; the second one
/// goes by a key of its own, and keeps it when the first one goes.
SMARTStatCollector::ItemPointer SMARTStatCollector::freeItem(const std::string& serial)
{
    std::string key = serial;
    for (int copy = 2; const auto taken = itemWithKey(key); ++copy) {
        if (!taken->exists()) {
            break;
        }
        key = serial + '#' + std::to_string(copy);
    }
    auto item = std::static_pointer_cast<SMARTStatCollectorItem>(newItemWithKey(key));
    item->setSamples(history_.item(key));
    return item;
}

void SMARTStatCollector::adoptDisk(const DiskRecord& disk, const std::string& serial)
{
    ItemPointer item = diskAt(disk, serial);
    if (!item) {
        item = freeItem(serial);
        item->setLoadAllAttributes(loadAllAttributes_);
        item->setSerial(serial);
        item->setModel(modelOfDisk(disk));
        item->setObject(disk);
        item->setDevice(
            context().host.disks->device(disk), context().runtime.makeSlowQueue("disk " + item->key().value_or("")));
    }
    item->setExists(true);
    item->setBsd(disk.blockDevice);
}

// Readings

bool SMARTStatCollector::isUpdateDue() const
{
    const auto all = disks();
    return needToReload_ || !lastRound_ || context().runtime.monotonicTime() >= *lastRound_ + frequency
        || std::any_of(all.begin(), all.end(),
            [](const auto& item) { return item->state() == DiskState::Unread && item->isDue(); });
}

void SMARTStatCollector::updateStatsIfDue(Task done)
{
    if (isUpdateDue()) {
        updateStats(std::move(done));
    } else if (const auto round = round_.lock(); round && !round->finished) {
        round->done.push_back(std::move(done));
    } else {
        done();
    }
}

void SMARTStatCollector::updateStats(Task done)
{
    startRecording();
    if (needToReload_) {
        discoverDisks();
    }
    beginRound(std::move(done), ifDue);
}

/// A round asks each disk what `ask` answers, if that is anything.
void SMARTStatCollector::beginRound(Task done, const Ask& ask)
{
    auto round = round_.lock();
    if (!round || round->finished) { // else this joins the one under way
        round = std::make_shared<Round>();
        round_ = round;
        lastRound_ = context().runtime.monotonicTime();
        context().runtime.after(patience, lifetime_.guard([this, round] { finish(*round); }));
    }
    if (done) {
        round->done.push_back(std::move(done));
    }
    const double sampleID = sampleIndex().sampleID;
    ++round->waiting; // for this loop: a round without disks ends too
    for (const auto& item : disks()) {
        item->updateSampleID(sampleID);
        if (const auto request = ask(*item)) {
            startReading(item, *request, round);
        }
    }
    context().runtime.mainQueue().post(lifetime_.guard([this, round] { answered(*round); }));
}

void SMARTStatCollector::answered(Round& round)
{
    if (--round.waiting == 0) {
        finish(round);
    }
}

void SMARTStatCollector::startReading(const std::shared_ptr<SMARTStatCollectorItem>& item, const SMARTRequest& request,
    const std::shared_ptr<Round>& round)
{
    if (!item->device()) {
        SMARTReading nothing;
        nothing.power = DiskPower::Awake;
        return item->update(nothing, 0);
    }
    ++round->waiting;
    auto answer = std::make_shared<SMARTReading>();
    const SMARTDevice* device = item->device().get();
    Task finished = lifetime_.guard([this, item, device, answer, round] {
        finishReading(item, device, *answer);
        answered(*round);
    });
    // Holds what it needs, so that it may still hang when the collector has gone.
    item->queue()->post([device = item->device(), request, answer = std::move(answer), finished = std::move(finished),
                            &main = context().runtime.mainQueue()]() mutable {
        *answer = SMARTSession::read(*device, request);
        answer.reset();
        main.post(std::move(finished));
    });
}

void SMARTStatCollector::finishReading(
    const std::shared_ptr<SMARTStatCollectorItem>& item, const SMARTDevice* device, const SMARTReading& reading)
{
    // A disk may have been unplugged, or plugged in elsewhere, while it was read.
    if (item->parent() == this && item->device().get() == device) {
        item->update(reading, sampleIndex().sampleID);
    }
}

void SMARTStatCollector::finish(Round& round)
{
    if (std::exchange(round.finished, true)) {
        return;
    }
    notifyDelegates();
    for (const Task& done : std::exchange(round.done, {})) {
        done();
    }
}

void SMARTStatCollector::notifyDelegates()
{
    if (updaterFinishBlock()) {
        updaterFinishBlock()(*this);
    }
}

// Items

std::shared_ptr<StatCollectorItem> SMARTStatCollector::makeItem()
{
    return std::make_shared<SMARTStatCollectorItem>(context());
}

std::vector<std::shared_ptr<SMARTStatCollectorItem>> SMARTStatCollector::disks() const
{
    std::vector<std::shared_ptr<SMARTStatCollectorItem>> all;
    all.reserve(items().size());
    for (const auto& item : items()) {
        all.push_back(std::static_pointer_cast<SMARTStatCollectorItem>(item)); // makeItem() makes no others
    }
    return all;
}

std::shared_ptr<SMARTStatCollectorItem> SMARTStatCollector::itemWithBSD(std::string_view bsd) const
{
    const auto all = disks();
    const auto found = std::find_if(all.begin(), all.end(), [&](const auto& item) { return item->bsd() == bsd; });
    return found == all.end() ? nullptr : *found;
}

// What clients get

Value SMARTStatCollector::diskTemperatures() const
{
    Value sensors = Value::array();
    for (const auto& item : disks()) {
        if (const auto temperature = item->temperature(); temperature && item->model()) {
            sensors.push_back({{"name", *item->model()}, {"key", *item->key()}, {"temperature", *temperature}});
        }
    }
    return sensors;
}

namespace {

Dictionary statusOfAttribute(const SMARTStatCollectorAttribute& attribute)
{
    const smartattribute& now = attribute.currentValue();
    Dictionary entry{{"f", std::to_string(now.flag)}, {"c", fixed0(now.current)}, {"w", fixed0(now.worst)},
        {"th", fixed0(now.threshold)}, {"t", fmt::format("{:.16g}", now.time)}};
    if (!attribute.value().is_null()) {
        entry["value"] = attribute.value();
    }
    return entry;
}

Dictionary statusOfDisk(const SMARTStatCollectorItem& item)
{
    Dictionary disk{{"key", item.bsd().value_or("")}};
    if (item.nvme()) {
        disk["nvme"] = true;
        put(disk, "nvme-percentage-used", item.nvmeLifetimePercentage());
        return disk;
    }
    disk["smart"] = true;
    put(disk, "status", item.overallStatus());
    Value attributes = Value::array();
    for (const auto& [attributeID, attribute] : item.attributes()) {
        attributes.push_back(statusOfAttribute(attribute));
    }
    disk["attributes"] = std::move(attributes);
    if (item.state() == DiskState::Asleep) {
        disk["asleep"] = true;
    }
    return disk;
}

} // namespace

Value SMARTStatCollector::diskStatus() const
{
    Value list = Value::array();
    for (const auto& item : disks()) {
        list.push_back(statusOfDisk(*item));
    }
    return list;
}

std::optional<Dictionary> SMARTStatCollector::overview()
{
    Value list = Value::array();
    for (const auto& item : disks()) {
        Dictionary disk{{"status", item->overallStatus().value_or(false) ? "1" : "0"}};
        put(disk, "model", item->model());
        put(disk, "firmware", item->firmware());
        put(disk, "serial", item->serial());
        Value attributes = Value::array();
        for (const auto& [attributeID, attribute] : item->attributes()) {
            const smartattribute& now = attribute.currentValue();
            Dictionary entry{{"id", std::to_string(attributeID)}, {"current", fixed0(now.current)},
                {"worst", fixed0(now.worst)}, {"threshold", fixed0(now.threshold)}};
            put(entry, "name", attribute.name());
            if (!attribute.value().is_null()) {
                entry["value"] = attribute.value();
            }
            attributes.push_back(std::move(entry));
        }
        disk["attributes"] = std::move(attributes);
        list.push_back(std::move(disk));
    }
    return Dictionary{{"items", std::move(list)}};
}

// The clock and history

bool SMARTStatCollector::shouldUpdateStateForSequence(std::int64_t sequence)
{
    return sequence % sequenceInterval == 0;
}

double SMARTStatCollector::updateFrequencyForVersion(std::int64_t) const { return frequency; }

void SMARTStatCollector::updateStatsForSequence(std::int64_t) { }

namespace {

HistorySeries seriesOf(const SMARTStatCollectorItem& disk, const char* unit, const char* value)
{
    return {.key = disk.key().value_or(""),
        .name = disk.model().value_or(disk.bsd().value_or("disk")),
        .unit = unit,
        .values = {value},
        .origin = disk.bsd().value_or("")};
}

} // namespace

std::vector<HistorySeries> SMARTStatCollector::offered(
    const RecordedSeries& recorded, const char* unit, bool (*has)(const SMARTStatCollectorItem&))
{
    if (needToReload_) {
        discoverDisks();
    }
    std::vector<HistorySeries> all;
    for (const auto& disk : disks()) {
        if (has(*disk)) {
            all.push_back(seriesOf(*disk, unit, recorded.value().c_str()));
        }
    }
    recorded.addAbsent(all);
    return all;
}

std::vector<HistorySeries> SMARTStatCollector::temperatureSeries()
{
    // What was recorded before a restart is there before the disk is read again; only a disk that was read without the
    // figure has none.
    return offered(recordedTemperatures_, "°C",
        [](const SMARTStatCollectorItem& disk) { return !disk.hasAnswered() || disk.hasTemperature(); });
}

std::vector<HistorySeries> SMARTStatCollector::wearSeries()
{
    return offered(recordedWear_, "%", [](const SMARTStatCollectorItem& disk) { // what spins does not wear
        return disk.hasAnswered() ? disk.wear().has_value() : disk.nvme() || disk.spins() != true;
    });
}

void SMARTStatCollector::noteSeries(const SMARTStatCollectorItem& disk)
{
    const RecordedSeries::Files files = history_.databases();
    if (disk.hasTemperature()) {
        recordedTemperatures_.note(files, seriesOf(disk, "°C", "temperature"));
    }
    if (disk.wear()) {
        recordedWear_.note(files, seriesOf(disk, "%", "wear"));
    }
}

void SMARTStatCollector::setRecording(bool recording)
{
    if (recording == history_.isRecording()) {
        return;
    }
    history_.setRecording(recording);
    keepsRecord_ = false;
    keeping_.end();
    if (isAskedToKeep_) {
        keepRecord();
    }
}

void SMARTStatCollector::keepRecord()
{
    isAskedToKeep_ = true;
    keepsRecord_ = history_.isRecording();
    std::error_code failure;
    if (std::filesystem::exists(history_.traits().dbpath, failure)) { // none is made on a machine without disks
        if (const auto file = history_.databaseForIndex(StorageIndex::Hour)) {
            recordedTemperatures_.load(*file);
            recordedWear_.load(*file);
        }
    }
    if (keepsRecord_) {
        context().runtime.after(firstRecord, keeping_.guard([this] { readForRecord(); }));
    }
}

void SMARTStatCollector::readForRecord()
{
    context().runtime.after(recordInterval, keeping_.guard([this] { readForRecord(); }));
    if (isWanted()) {
        return; // who asks has them read more often
    }
    if (needToReload_) {
        discoverDisks();
    }
    const auto lastForClients = lastRound_;
    beginRound({}, [](SMARTStatCollectorItem& item) {
        return item.isDueForRecord()  ? std::optional(item.beginReading())
            : item.isPowerUncertain() ? std::optional(item.beginLookAtPower())
                                      : std::nullopt;
    });
    lastRound_ = lastForClients; // a client that comes now does not go by figures of half an hour ago
    startRecording();
}

void SMARTStatCollector::startRecording()
{
    if (!recording_ && history_.isRecording() && (isWanted() || keepsRecord_) && !items().empty()) {
        recording_ = true;
        setStopped(false);
        startLogging();
    }
}

void SMARTStatCollector::updateHistory()
{
    if (!history_.isRecording() || (!isWanted() && !keepsRecord_)) {
        history_.runDatabaseQueue(); // what has been noted reaches the file; then there is rest, without a wake-up
        recording_ = false;
        setStopped(true);
        return;
    }
    const double now = context().runtime.wallTime();
    for (const auto& item : disks()) {
        if (!item->isFresh(isWanted() ? SMARTRhythm::Watched : SMARTRhythm::Record)) {
            continue;
        }
        noteSeries(*item);
        const std::array<std::optional<double>, 2> sample = {item->temperature(), item->wear()};
        item->samples()->addSample(now, sample);
    }
    history_.updateHistory();
}

} // namespace meridal
