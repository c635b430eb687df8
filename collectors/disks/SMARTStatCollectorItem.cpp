#include "collectors/disks/SMARTStatCollectorItem.h"

#include "base/Runtime.h"
#include "platform/Context.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

namespace meridal {

namespace {

constexpr std::size_t valueCount = 2; ///< temperature and wear

constexpr double ataInterval = 300; ///< s between readings of an ATA disk: some rest longer when left alone
/// For the record alone. Some disks start to count the time to their rest anew with every reading, so readings must be
/// much further apart than that time, which is a quarter of an hour at most on the machines of people who care.
constexpr double ataRecordInterval = 1800;
constexpr double nvmeRecordInterval = 300;
constexpr double slack = 5; ///< s by which a turn may come early
/// A figure counts as present for two turns and a little, so that one late answer leaves no hole.
constexpr double freshATA = 2 * ataInterval + 30;
constexpr double freshNVMe = 75; ///< s; the daemon asks every 30
/// For the record the next turn must come in time: a temperature of an hour ago is none.
constexpr double freshATARecord = ataRecordInterval + nvmeRecordInterval + 30;
constexpr double freshNVMeRecord = 2 * nvmeRecordInterval + 30;

constexpr std::int32_t noTemperature = 128;
constexpr std::uint8_t diskTemperature = 194;
constexpr std::uint8_t airflowTemperature = 190;

/// Where several attributes tell the life left, the one that vendors mean as such comes first.
constexpr std::array<std::uint8_t, 5> lifeLeftOrder = {231, 169, 233, 177, 173};

} // namespace

SMARTStatCollectorItem::SMARTStatCollectorItem(Context& context)
    : StatCollectorItem(context, valueCount, StorageLayout::forHistory())
{
}

void SMARTStatCollectorItem::setObject(RegistryEntryPtr entry)
{
    object_ = std::move(entry);
    forget();
    if (const Value medium = object_ ? object_->property("Device Characteristics") : Value(); medium.is_object()) {
        const auto type = text(medium, "Medium Type");
        spins_ = type == "Solid State" ? std::optional(false) : type == "Rotational" ? std::optional(true) : spins_;
    }
}

void SMARTStatCollectorItem::forget()
{
    firmware_.reset();
    spins_.reset();
    attributes_.clear();
    health_.reset();
    overallStatus_.reset();
    loadedThresholds_ = false;
    loadedIdentity_ = false;
    lastStatusUpdate_ = 0;
    lastRead_.reset();
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
        entry->second.describe(attributeInfo(attributeID, model_.value_or(""), spins_));
    }
    return &entry->second;
}

const SMARTStatCollectorAttribute* SMARTStatCollectorItem::existingAttributeWithID(std::uint8_t attributeID) const
{
    const auto found = attributes_.find(attributeID);
    return found == attributes_.end() ? nullptr : &found->second;
}

const SMARTStatCollectorAttribute* SMARTStatCollectorItem::attributeOfRole(AttributeRole role) const
{
    const auto found = std::find_if(
        attributes_.begin(), attributes_.end(), [role](const auto& entry) { return entry.second.role() == role; });
    return found == attributes_.end() ? nullptr : &found->second;
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

std::optional<std::int32_t> SMARTStatCollectorItem::temperatureOfAttribute(std::uint8_t attributeID) const
{
    const SMARTStatCollectorAttribute* attribute = existingAttributeWithID(attributeID);
    if (!attribute || !attribute->value().is_number()) {
        return std::nullopt;
    }
    const auto degrees = attribute->value().get<std::int32_t>();
    return degrees == noTemperature ? std::nullopt : std::optional(degrees);
}

std::optional<std::int32_t> SMARTStatCollectorItem::temperature() const
{
    if (state_ == DiskState::Asleep) {
        return std::nullopt;
    }
    if (nvme_) {
        return nvmeTemperature();
    }
    const auto own = temperatureOfAttribute(diskTemperature);
    return own ? own : temperatureOfAttribute(airflowTemperature);
}

bool SMARTStatCollectorItem::hasTemperature() const
{
    return nvme_ ? nvmeTemperature().has_value()
                 : temperatureOfAttribute(diskTemperature) || temperatureOfAttribute(airflowTemperature);
}

std::optional<double> SMARTStatCollectorItem::wear() const
{
    if (nvme_) {
        return nvmeLifetimePercentage();
    }
    if (const auto* used = attributeOfRole(AttributeRole::LifeUsed)) {
        return used->currentValue().formatted;
    }
    for (const std::uint8_t attributeID : lifeLeftOrder) {
        const SMARTStatCollectorAttribute* left = existingAttributeWithID(attributeID);
        const double percent = left ? left->currentValue().current : 0;
        // 0 and what is above 100 come from disks that do not keep it.
        if (left && left->role() == AttributeRole::LifeLeft && percent >= 1 && percent <= 100) {
            return 100 - percent;
        }
    }
    return std::nullopt;
}

std::optional<double> SMARTStatCollectorItem::powerOnSeconds() const
{
    constexpr double hour = 3600;
    if (nvme_) {
        return health_ ? std::optional(health_->powerOnHours * hour) : std::nullopt;
    }
    const auto* time = attributeOfRole(AttributeRole::PowerOnTime);
    return time ? std::optional(time->currentValue().formatted * hour) : std::nullopt;
}

std::optional<double> SMARTStatCollectorItem::powerCycles() const
{
    if (nvme_) {
        return health_ ? std::optional(health_->powerCycles) : std::nullopt;
    }
    const auto* cycles = attributeOfRole(AttributeRole::PowerCycles);
    return cycles ? std::optional(cycles->currentValue().formatted) : std::nullopt;
}

// Readings

bool SMARTStatCollectorItem::isDue() const
{
    if (isBeingRead()) {
        return false;
    }
    return nvme_ || !lastAsked_ || context().runtime.monotonicTime() >= *lastAsked_ + ataInterval;
}

bool SMARTStatCollectorItem::isDueForRecord() const
{
    const double interval = nvme_ ? nvmeRecordInterval : ataRecordInterval;
    return !isBeingRead() && (!lastAsked_ || context().runtime.monotonicTime() >= *lastAsked_ + interval - slack);
}

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
    return {.kind = nvme_ ? SMARTKind::NVMe : SMARTKind::ATA,
        .identity = !loadedIdentity_,
        .thresholds = !nvme_ && !loadedThresholds_};
}

void SMARTStatCollectorItem::update(const SMARTReading& reading, double sampleID)
{
    readingSince_.reset();
    if (reading.power != DiskPower::Awake) {
        state_ = reading.power == DiskPower::Asleep ? DiskState::Asleep : DiskState::PowerHidden;
        return;
    }
    takeIdentity(reading);
    const bool answered = nvme_ ? reading.health.has_value() : reading.data.has_value();
    state_ = answered ? DiskState::Read : DiskState::Silent;
    if (!answered) {
        return;
    }
    lastRead_ = context().runtime.monotonicTime();
    lastStatusUpdate_ = context().runtime.wallTime();
    if (nvme_) {
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
        if (!model_) {
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
        if (reading.identity->smartSupported) {
            adopt(*reading.identity);
        }
    }
}

void SMARTStatCollectorItem::takeAttributes(const SMARTReading& reading, double sampleID)
{
    loadedThresholds_ = loadedThresholds_ || reading.thresholds.has_value();
    for (const SMARTDataEntry& entry : reading.data->entries) {
        const bool known = attributeInfo(entry.attributeID, model_.value_or(""), spins_) != nullptr;
        if (!loadAllAttributes_ && !known && (entry.flags & 1U) == 0) {
            continue;
        }
        SMARTStatCollectorAttribute* attribute = attributeWithID(entry.attributeID);
        if (reading.thresholds) {
            attribute->setThreshold(reading.thresholds->thresholds[entry.attributeID].value_or(0));
        }
        attribute->updateWithAttribute(entry, sampleID, lastStatusUpdate_);
    }
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
        rhythm == SMARTRhythm::Watched ? (nvme_ ? freshNVMe : freshATA) : (nvme_ ? freshNVMeRecord : freshATARecord);
    return state_ == DiskState::Read && age <= longest;
}

std::optional<Dictionary> SMARTStatCollectorItem::historyItemForIndex(StorageIndex index)
{
    auto sample = StatCollectorItem::historyItemForIndex(index);
    if (sample && !wear()) {
        (*sample)["wear"] = nullptr;
    }
    if (sample && !hasTemperature()) {
        (*sample)["temperature"] = nullptr;
    }
    return sample;
}

Value SMARTStatCollectorItem::xmlSamplesFromAttributes(const Value&) { return Value::array(); }

} // namespace meridal
