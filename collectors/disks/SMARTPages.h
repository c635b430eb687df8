// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/ATAIdentity.h"
#include "platform/host/SMARTDevice.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace meridal {

/// One attribute as the disk delivers it: 12 bytes of the data page.
struct SMARTDataEntry {
    std::uint8_t attributeID = 0;
    std::uint16_t flags = 0; ///< bit 0: a failure is predicted from it; else it tells of age and use
    std::uint8_t current = 0;
    std::uint8_t worst = 0;
    std::array<std::uint8_t, 6> raw = {}; ///< least significant byte first
    std::uint8_t reserved = 0;            ///< some vendors go on with the raw value in it
};

/// An ATA SMART data page: 30 places for attributes behind a 2-byte revision. Places with id 0 are empty.
struct SMARTDataPage {
    std::uint16_t revision = 0;
    std::vector<SMARTDataEntry> entries; ///< one an id, in the disk's order
};

/// Thresholds by attribute id, from a page of the same shape. The order need not be that of the data page.
struct SMARTThresholdPage {
    std::array<std::optional<std::uint8_t>, 256> thresholds;
};

/// What Identify Controller says.
struct NVMeIdentity {
    std::optional<std::string> model;
    std::optional<std::string> serial;
    std::optional<std::string> firmware;
};

/// An NVMe health log. Counters have 128 bits there; a double holds them closely enough.
struct NVMeHealth {
    std::uint8_t criticalWarning = 0;          ///< bits: see NVMeWarning
    std::optional<std::int32_t> temperature;   ///< °C, composite; absent where the disk reports 0 K
    std::uint8_t availableSpare = 0;           ///< %
    std::uint8_t spareThreshold = 0;           ///< %
    std::uint8_t percentageUsed = 0;           ///< of the rated life; may pass 100
    double dataRead = 0;                       ///< bytes
    double dataWritten = 0;                    ///< bytes
    double powerCycles = 0;                    ///< count
    double powerOnHours = 0;                   ///< h
    double unsafeShutdowns = 0;                ///< count
    double mediaErrors = 0;                    ///< count
    double errorLogEntries = 0;                ///< count
    double readCommands = 0;                   ///< count, of the host's
    double writeCommands = 0;                  ///< likewise
    double busyTime = 0;                       ///< s that it was at work on commands
    double warmTime = 0;                       ///< s above the temperature that it warns of
    double hotTime = 0;                        ///< s above the critical one
    std::array<std::optional<int>, 8> sensors; ///< °C, of the disk's further sensors
};

/// Bits of NVMeHealth::criticalWarning.
enum class NVMeWarning : std::uint8_t {
    SpareLow = 1,
    Temperature = 2,
    Unreliable = 4,
    ReadOnly = 8,
    BackupFailed = 16,
    PersistentMemory = 32,
};

/// The parsers answer absent for a page that cannot be genuine: a wrong checksum, or nothing but zeros or ones, which is
/// what some bridges give for what they do not know.
std::optional<SMARTDataPage> parseSMARTData(const SMARTPage& page);
std::optional<SMARTThresholdPage> parseSMARTThresholds(const SMARTPage& page);
std::optional<NVMeHealth> parseNVMeHealth(const SMARTPage& page);
std::optional<NVMeIdentity> parseNVMeIdentity(const SMARTPage& page);

} // namespace meridal
