// SPDX-License-Identifier: Apache-2.0
#include "collectors/disks/SMARTStatCollectorItem.h"

#include "base/Runtime.h"
#include "platform/Context.h"
#include "platform/host/Host.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace meridal {

namespace {

constexpr double ataInterval = 300; ///< s between readings of an ATA disk: some rest longer when left alone
/// For the record alone. Some disks start to count the time to their rest anew with every reading, so readings must be
/// further apart than that time, or there must be none while nobody else uses the disk.
constexpr double ataRecordInterval = 1800;
constexpr double nvmeRecordInterval = 300;
constexpr double slack = 5; ///< s by which a turn may come early
/// A figure counts as present for two turns and a little, so that one late answer leaves no hole.
constexpr double freshATA = 2 * ataInterval + 30;
constexpr double freshNVMe = 75; ///< s; the daemon asks every 30
/// For the record the next turn must come in time: a temperature of an hour ago is none. Meanwhile an ATA disk is asked
/// whether it sleeps, as it is cold soon then.
constexpr double freshATARecord = ataRecordInterval + nvmeRecordInterval + 30;
constexpr double freshNVMeRecord = 2 * nvmeRecordInterval + 30;

constexpr double asleepInterval = 25; ///< s; the daemon asks every 30
constexpr std::uint8_t diskTemperature = 194;
constexpr std::uint8_t airflowTemperature = 190;

} // namespace

void SMARTStatCollectorItem::setObject(DiskRecord disk)
{
    object_ = std::move(disk);
    forget();
    spins_ = object_.rotational;
}

void SMARTStatCollectorItem::forget()
{
    firmware_.reset();
    spins_.reset();
    attributes_.clear();
    definitions_ = usualDefinitions();
    loadedDefinitions_ = false;
    isModern_ = false;
    sectorSize_ = 512;
    health_.reset();
    overallStatus_.reset();
    loadedThresholds_ = false;
    loadedIdentity_ = false;
    lastStatusUpdate_ = 0;
    lastRead_.reset();
    requestsWhenRead_.reset();
    state_ = DiskState::Unread;
}

void SMARTStatCollectorItem::setDevice(std::shared_ptr<SMARTDevice> device, std::shared_ptr<Queue> queue)
{
    device_ = std::move(device);
    queue_ = std::move(queue);
    readingSince_.reset(); // what the old device still answers goes nowhere
    lastAsked_.reset();
}

// Attributes

SMARTStatCollectorAttribute* SMARTStatCollectorItem::attributeWithID(std::uint8_t attributeID)
{
    if (attributeID == 0) {
        return nullptr;
    }
    const auto [entry, isNew] = attributes_.try_emplace(attributeID, attributeID);
    if (isNew) {
        entry->second.describe(describeAttribute(attributeID, definitions_, traits()));
    }
    return &entry->second;
}

const SMARTStatCollectorAttribute* SMARTStatCollectorItem::existingAttributeWithID(std::uint8_t attributeID) const
{
    const auto found = attributes_.find(attributeID);
    return found == attributes_.end() ? nullptr : &found->second;
}

DiskTraits SMARTStatCollectorItem::traits() const
{
    return {.spins = spins_, .isModern = isModern_, .sectorSize = sectorSize_};
}

void SMARTStatCollectorItem::describeAttributes()
{
    for (auto& [attributeID, attribute] : attributes_) {
        attribute.describe(describeAttribute(attributeID, definitions_, traits()));
    }
}

// Figures

std::optional<std::int32_t> SMARTStatCollectorItem::nvmeLifetimePercentage() const
{
    return health_ ? std::optional<std::int32_t>(health_->percentageUsed) : std::nullopt;
}

std::optional<std::int32_t> SMARTStatCollectorItem::nvmeTemperature() const
{
    return health_ ? health_->temperature : std::nullopt;
}

/// The disk's own sensor is the one with the number that most disks use, then the one in the airflow.
std::optional<std::int32_t> SMARTStatCollectorItem::attributeTemperature() const
{
    for (const std::uint8_t attributeID : {diskTemperature, airflowTemperature}) {
        const SMARTStatCollectorAttribute* attribute = existingAttributeWithID(attributeID);
        if (const auto degrees = attribute ? attribute->temperature() : std::nullopt) {
            return static_cast<std::int32_t>(*degrees);
        }
    }
    const auto other = firstOf(&SMARTStatCollectorAttribute::temperature);
    return other ? std::optional(static_cast<std::int32_t>(*other)) : std::nullopt;
}

std::optional<std::int32_t> SMARTStatCollectorItem::temperature() const
{
    if (state_ == DiskState::Asleep) {
        return std::nullopt;
    }
    return nvme() ? nvmeTemperature() : attributeTemperature();
}

bool SMARTStatCollectorItem::hasTemperature() const
{
    return nvme() ? nvmeTemperature().has_value() : attributeTemperature().has_value();
}

std::optional<double> SMARTStatCollectorItem::firstOf(
    std::optional<double> (SMARTStatCollectorAttribute::*figure)() const) const
{
    for (const auto& [attributeID, attribute] : attributes_) {
        if (const auto found = (attribute.*figure)()) {
            return found;
        }
    }
    return std::nullopt;
}

std::optional<double> SMARTStatCollectorItem::wear() const
{
    if (nvme()) {
        return nvmeLifetimePercentage();
    }
    const SMARTStatCollectorAttribute* best = nullptr;
    for (const auto& [attributeID, attribute] : attributes_) {
        if (attribute.lifeUsed() && (!best || attribute.lifeRank() < best->lifeRank())) {
            best = &attribute;
        }
    }
    return best ? best->lifeUsed() : std::nullopt;
}

std::optional<double> SMARTStatCollectorItem::powerOnSeconds() const
{
    constexpr double hour = 3600;
    const auto hours = !nvme() ? firstOf(&SMARTStatCollectorAttribute::powerOnHours)
        : health_              ? std::optional(health_->powerOnHours)
                               : std::nullopt;
    return hours ? std::optional(*hours * hour) : std::nullopt;
}

std::optional<double> SMARTStatCollectorItem::powerCycles() const
{
    if (nvme()) {
        return health_ ? std::optional(health_->powerCycles) : std::nullopt;
    }
    return firstOf(&SMARTStatCollectorAttribute::powerCycles);
}

std::optional<double> SMARTStatCollectorItem::bytesOf(AttributeRole role) const
{
    // Where a disk tells it twice, the higher number is the one that vendors keep for it today.
    const auto found = std::find_if(attributes_.rbegin(), attributes_.rend(),
        [role](const auto& entry) { return entry.second.role() == role && entry.second.bytes(); });
    return found == attributes_.rend() ? std::nullopt : found->second.bytes();
}

std::optional<double> SMARTStatCollectorItem::bytesWritten() const
{
    return health_ ? std::optional(health_->dataWritten) : bytesOf(AttributeRole::BytesWritten);
}

std::optional<double> SMARTStatCollectorItem::bytesRead() const
{
    return health_ ? std::optional(health_->dataRead) : bytesOf(AttributeRole::BytesRead);
}

// Readings

bool SMARTStatCollectorItem::isDue() const
{
    if (isBeingRead()) {
        return false;
    }
    const double interval = state_ == DiskState::Asleep ? asleepInterval : ataInterval;
    return nvme() || !lastAsked_ || context().runtime.monotonicTime() >= *lastAsked_ + interval;
}

bool SMARTStatCollectorItem::isDueForRecord() const
{
    const double interval = nvme() ? nvmeRecordInterval : ataRecordInterval;
    if (isBeingRead() || (lastAsked_ && context().runtime.monotonicTime() < *lastAsked_ + interval - slack)) {
        return false;
    }
    const bool mayRest = !nvme() && spins_ != false;
    return !mayRest || !requestsWhenRead_ || requests() != requestsWhenRead_;
}

std::optional<std::int64_t> SMARTStatCollectorItem::requests() const { return context().host.disks->requests(object_); }

double SMARTStatCollectorItem::readingFor() const
{
    return readingSince_ ? context().runtime.monotonicTime() - *readingSince_ : 0;
}

SMARTRequest SMARTStatCollectorItem::beginReading()
{
    const double now = context().runtime.monotonicTime();
    lastAsked_ = now;
    readingSince_ = now;
    lastTemperatureUpdate_ = context().runtime.wallTime();
    return {.kind = object_.kind,
        .identity = !loadedIdentity_ || state_ == DiskState::SwitchedOff,
        .definitions = !nvme() && !loadedDefinitions_,
        .thresholds = !nvme() && !loadedThresholds_};
}

SMARTRequest SMARTStatCollectorItem::beginLookAtPower()
{
    readingSince_ = context().runtime.monotonicTime();
    return {.kind = object_.kind, .powerOnly = true};
}

void SMARTStatCollectorItem::update(const SMARTReading& reading, double sampleID)
{
    readingSince_.reset();
    if (reading.denied) {
        state_ = DiskState::Denied;
        return;
    }
    if (reading.power != DiskPower::Awake) {
        state_ = reading.power == DiskPower::Asleep ? DiskState::Asleep : DiskState::PowerHidden;
        return;
    }
    if (reading.powerOnly) {
        return;
    }
    requestsWhenRead_ = requests(); // after the reading: a host may count that, too
    takeIdentity(reading);
    const bool answered = nvme() ? reading.health.has_value() : reading.data.has_value();
    state_ = answered ? DiskState::Read : reading.switchedOff ? DiskState::SwitchedOff : DiskState::Silent;
    if (!answered) {
        return;
    }
    lastRead_ = context().runtime.monotonicTime();
    lastStatusUpdate_ = context().runtime.wallTime();
    if (nvme()) {
        health_ = reading.health;
        overallStatus_ = health_->criticalWarning == 0;
        return;
    }
    takeAttributes(reading, sampleID);
    takeStatus(reading);
}

void SMARTStatCollectorItem::takeIdentity(const SMARTReading& reading)
{
    const auto adopt = [this](const auto& identity) {
        loadedIdentity_ = true;
        // Its own words, which what it is plugged into may have shortened; but for those that are known by their maker.
        if (identity.model && (!model_ || !model_->starts_with("Apple "))) {
            model_ = identity.model;
        }
        firmware_ = identity.firmware;
    };
    if (reading.controller) {
        adopt(*reading.controller);
    } else if (reading.identity) {
        if (reading.identity->spins) {
            spins_ = reading.identity->spins; // bridges let every disk look as if it spun
        }
        isModern_ = reading.identity->isModern;
        sectorSize_ = reading.identity->sectorSize;
        if (reading.identity->smartSupported) {
            adopt(*reading.identity);
        }
        if (reading.definitions) {
            definitions_ = *reading.definitions;
            loadedDefinitions_ = true;
        }
        describeAttributes();
    }
}

void SMARTStatCollectorItem::takeAttributes(const SMARTReading& reading, double sampleID)
{
    loadedThresholds_ = loadedThresholds_ || reading.thresholds.has_value();
    for (const SMARTDataEntry& entry : reading.data->entries) {
        const bool known = describeAttribute(entry.attributeID, definitions_, traits()).title.has_value();
        if (!loadAllAttributes_ && !known && (entry.flags & 1U) == 0) {
            continue;
        }
        SMARTStatCollectorAttribute* attribute = attributeWithID(entry.attributeID);
        if (reading.thresholds) {
            attribute->setThreshold(reading.thresholds->thresholds[entry.attributeID].value_or(0));
        }
        attribute->updateWithAttribute(entry, sampleID, lastStatusUpdate_);
    }
    // A disk has some 20 attributes, and the same ones all its life.
    std::erase_if(definitions_.attributes, [&](const auto& each) {
        return loadedDefinitions_
            && std::none_of(reading.data->entries.begin(), reading.data->entries.end(),
                [&each](const SMARTDataEntry& entry) { return entry.attributeID == each.first; });
    });
}

/// What the disk says of itself; where it, or the bridge before it, does not say, what its attributes amount to.
void SMARTStatCollectorItem::takeStatus(const SMARTReading& reading)
{
    if (reading.failing) {
        overallStatus_ = !*reading.failing;
    } else if (loadedThresholds_) {
        overallStatus_ = std::none_of(attributes_.begin(), attributes_.end(), [](const auto& entry) {
            return entry.second.predictsFailure() && entry.second.status() == AttributeStatus::FailingNow;
        });
    }
}

void SMARTStatCollectorItem::updateSampleID(double sampleID)
{
    for (auto& [attributeID, attribute] : attributes_) {
        attribute.setSampleID(sampleID);
    }
}

bool SMARTStatCollectorItem::isFresh(SMARTRhythm rhythm) const
{
    const double age = lastRead_ ? context().runtime.monotonicTime() - *lastRead_ : HUGE_VAL;
    const double longest =
        rhythm == SMARTRhythm::Watched ? (nvme() ? freshNVMe : freshATA) : (nvme() ? freshNVMeRecord : freshATARecord);
    return state_ == DiskState::Read && age <= longest;
}

Value SMARTStatCollectorItem::xmlSamplesFromAttributes(const Value&) { return Value::array(); }

} // namespace meridal
