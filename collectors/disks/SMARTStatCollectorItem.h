// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collectors/StatCollectorItem.h"
#include "collectors/disks/SMARTSession.h"
#include "collectors/disks/SMARTStatCollectorAttribute.h"
#include "platform/host/Disks.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace meridal {

class Queue;
class SampleStorages;

/// How often disks are read now.
enum class SMARTRhythm { Watched, Record };

/// How a disk answered last.
enum class DiskState {
    Unread,      ///< not asked yet
    Read,        ///< its figures are of the last reading
    Asleep,      ///< asked for nothing, so as not to wake it
    PowerHidden, ///< asked for nothing: it spins, and nobody can tell whether it sleeps
    SwitchedOff, ///< its owner has switched SMART off
    Denied,      ///< we have no right to ask it
    Silent,      ///< it was asked and gave nothing that made sense
};

/// One disk with health data, by its serial number. Its figures stay until a later reading has newer ones. Main queue
/// only; the disk itself is read elsewhere, by a SMARTSession.
class SMARTStatCollectorItem final : public StatCollectorItem {
public:
    using Attributes = std::map<std::uint8_t, SMARTStatCollectorAttribute>;

    using StatCollectorItem::StatCollectorItem;

    // Identity
    const std::optional<std::string>& serial() const { return serial_; }
    void setSerial(std::string serial) { serial_ = std::move(serial); }
    const std::optional<std::string>& model() const { return model_; }
    void setModel(std::optional<std::string> model) { model_ = std::move(model); }
    const std::optional<std::string>& firmware() const { return firmware_; }
    /// Name of the block device.
    const std::optional<std::string>& bsd() const { return bsd_; }
    void setBsd(std::optional<std::string> bsd) { bsd_ = std::move(bsd); }
    bool nvme() const { return object_.kind == SMARTKind::NVMe; }
    /// Absent while not known.
    std::optional<bool> spins() const { return spins_; }
    /// Its place in the machine.
    const DiskRecord& object() const { return object_; }
    /// A new place may have another disk behind it, even one with the same serial number: forgets all that was read.
    void setObject(DiskRecord disk);

    // Figures
    Attributes& attributes() { return attributes_; }
    const Attributes& attributes() const { return attributes_; }
    /// The attribute of that id, made where it is missing; null for id 0.
    SMARTStatCollectorAttribute* attributeWithID(std::uint8_t attributeID);
    const SMARTStatCollectorAttribute* existingAttributeWithID(std::uint8_t attributeID) const;
    /// Whether the disk thinks itself fine. Absent until it has said, or shown by its attributes.
    std::optional<bool> overallStatus() const { return overallStatus_; }
    std::optional<std::int32_t> nvmeLifetimePercentage() const;
    std::optional<std::int32_t> nvmeTemperature() const;
    const std::optional<NVMeHealth>& nvmeHealth() const { return health_; }
    /// °C. Absent while it sleeps: what it was then says nothing of now.
    std::optional<std::int32_t> temperature() const;
    /// It has told a temperature, whether or not it does now.
    bool hasTemperature() const;
    /// Percentage of the rated life that is used up; of disks that wear.
    std::optional<double> wear() const;
    std::optional<double> powerOnSeconds() const;
    std::optional<double> powerCycles() const;
    std::optional<double> bytesWritten() const;
    std::optional<double> bytesRead() const;

    // Readings
    /// Keep what only the vendor knows too, and not just what is known or predicts failures.
    void setLoadAllAttributes(bool all) { loadAllAttributes_ = all; }
    DiskState state() const { return state_; }
    /// Its figures have been read once at least.
    bool hasAnswered() const { return lastRead_.has_value(); }
    double lastStatusUpdate() const { return lastStatusUpdate_; } ///< s since 1970; 0 = never
    /// Whether its turn has come: an ATA disk's every 300 s, that of one asleep every 25 s, as looking does not wake it and
    /// somebody else may have, an NVMe disk's always, nobody's while it is being read.
    bool isDue() const;
    /// The same for the record alone: an ATA disk's every 1800 s, but not while one that may spin is left alone by all
    /// others: its time to rest would never pass if that is half an hour or more.
    bool isDueForRecord() const;
    /// Whether its figures are only of now if it has not gone to sleep meanwhile: an ATA disk's, between two readings for
    /// the record.
    bool isPowerUncertain() const { return !nvme() && state_ == DiskState::Read && !isBeingRead(); }
    bool isBeingRead() const { return readingSince_.has_value(); }
    /// s since the reading in progress began; 0 without one.
    double readingFor() const;
    /// What to ask of it now; its turn begins with that.
    SMARTRequest beginReading();
    /// Likewise, but for whether it sleeps; its turn stays.
    SMARTRequest beginLookAtPower();
    void update(const SMARTReading& reading, double sampleID);
    void updateSampleID(double sampleID);
    /// Its figures are of now, as far as that rhythm goes, and belong into its history.
    bool isFresh(SMARTRhythm rhythm) const;

    /// Where its figures are kept.
    const std::shared_ptr<SampleStorages>& samples() const { return samples_; }
    void setSamples(std::shared_ptr<SampleStorages> samples) { samples_ = std::move(samples); }

    // What reads it: made by the collector, and renewed with its place
    const std::shared_ptr<SMARTDevice>& device() const { return device_; }
    const std::shared_ptr<Queue>& queue() const { return queue_; }
    void setDevice(std::shared_ptr<SMARTDevice> device, std::shared_ptr<Queue> queue);

    // Of the interface, and called by nothing here
    bool loadAllAttributes() const { return loadAllAttributes_; }
    bool loadedThresholds() const { return loadedThresholds_; }
    double lastTemperatureUpdate() const { return lastTemperatureUpdate_; } ///< likewise; when it was last asked
    /// The figures of the attributes of a list of samples, by id. Attributes are not recorded: empty.
    static Value xmlSamplesFromAttributes(const Value& attributes);

private:
    void forget();
    void takeIdentity(const SMARTReading& reading);
    void takeAttributes(const SMARTReading& reading, double sampleID);
    void takeStatus(const SMARTReading& reading);
    /// How many requests it has been sent by everybody; absent where the system does not count.
    std::optional<std::int64_t> requests() const;
    void describeAttributes();
    DiskTraits traits() const;
    /// The first figure that an attribute of the disk has of what is asked.
    std::optional<double> firstOf(std::optional<double> (SMARTStatCollectorAttribute::*figure)() const) const;
    std::optional<double> bytesOf(AttributeRole role) const;
    std::optional<std::int32_t> attributeTemperature() const;

    std::optional<std::string> serial_;
    std::optional<std::string> model_;
    std::optional<std::string> firmware_;
    std::optional<std::string> bsd_;
    DiskRecord object_;
    std::shared_ptr<SMARTDevice> device_;
    std::shared_ptr<Queue> queue_;
    Attributes attributes_;
    AttributeDefinitions definitions_ = usualDefinitions();
    bool loadedDefinitions_ = false; ///< of this model, and not just the usual ones
    bool isModern_ = false;
    std::uint32_t sectorSize_ = 512;
    std::optional<NVMeHealth> health_;
    std::optional<bool> overallStatus_;
    std::optional<bool> spins_;
    bool loadAllAttributes_ = false;
    bool loadedThresholds_ = false;
    bool loadedIdentity_ = false;
    DiskState state_ = DiskState::Unread;
    double lastStatusUpdate_ = 0;
    double lastTemperatureUpdate_ = 0;
    std::optional<double> lastAsked_;    ///< monotonic s
    std::optional<double> lastRead_;     ///< monotonic s
    std::optional<double> readingSince_; ///< monotonic s
    std::optional<std::int64_t> requestsWhenRead_;
    std::shared_ptr<SampleStorages> samples_;
};

} // namespace meridal
