// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collectors/disks/DriveDatabase.h"
#include "collectors/disks/SMARTPages.h"

#include <optional>

namespace meridal {

/// What is to be read of a disk in one go.
struct SMARTRequest {
    SMARTKind kind = SMARTKind::ATA;
    bool powerOnly = false;   ///< just whether it sleeps, which does not keep it from sleeping
    bool identity = false;    ///< who it is; once a disk
    bool definitions = false; ///< what its attributes are, which takes its identity; once a disk
    bool thresholds = false;  ///< once a disk: they never change
};

/// What came of it. What could not be read, or made no sense, is absent.
struct SMARTReading {
    bool powerOnly = false; ///< it was asked for no more
    DiskPower power = DiskPower::Unknown;
    bool supported = false;   ///< it talks about its health at all; false also while asleep
    bool denied = false;      ///< we have no right to ask it
    bool switchedOff = false; ///< its owner has switched SMART off; nothing but its identity was read
    std::optional<ATAIdentity> identity;
    std::optional<AttributeDefinitions> definitions;
    std::optional<NVMeIdentity> controller;
    std::optional<SMARTDataPage> data;
    std::optional<SMARTThresholdPage> thresholds;
    std::optional<bool> failing;
    std::optional<NVMeHealth> health;
};

/// One conversation with a disk, from waking nobody to closing it again. Knows nothing of items, so that it can run, and
/// hang, where nothing else does.
class SMARTSession {
public:
    SMARTSession(SMARTDevice& device, SMARTRequest request);
    ~SMARTSession() { destroyPlugin(); }
    SMARTSession(const SMARTSession&) = delete;
    SMARTSession& operator=(const SMARTSession&) = delete;

    /// The whole of it.
    static SMARTReading read(SMARTDevice& device, SMARTRequest request);

    bool createPlugin();
    void destroyPlugin();
    bool isSupported() const { return open_; }
    void loadDeviceInfo();
    void loadDefinitions();
    /// Both, and true only when both succeed. Not part of a reading: whoever has switched them off meant it.
    bool enableSMARTCommands();
    void disableSMART();
    /// Reads the figures; what fails leaves those of an earlier call.
    void update();
    const SMARTReading& reading() const { return reading_; }

private:
    SMARTDevice& device_;
    SMARTRequest request_;
    SMARTReading reading_;
    bool open_ = false;
};

} // namespace meridal
