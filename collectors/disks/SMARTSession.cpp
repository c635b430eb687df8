// SPDX-License-Identifier: Apache-2.0
#include "collectors/disks/SMARTSession.h"

#include <utility>

namespace meridal {

namespace {

/// Parses a page where there is one, and keeps what was there before where that fails.
template <typename Parsed>
void take(
    std::optional<Parsed>& into, const std::optional<SMARTPage>& page, std::optional<Parsed> (*parse)(const SMARTPage&))
{
    if (auto parsed = page ? parse(*page) : std::nullopt) {
        into = std::move(parsed);
    }
}

} // namespace

SMARTSession::SMARTSession(SMARTDevice& device, SMARTRequest request) : device_(device), request_(request) { }

SMARTReading SMARTSession::read(SMARTDevice& device, SMARTRequest request)
{
    SMARTSession session(device, request);
    session.reading_.powerOnly = request.powerOnly;
    session.reading_.power = device.powerMode();
    session.reading_.denied = device.isDenied();
    if (request.powerOnly) {
        return session.reading_;
    }
    if (session.reading_.denied || session.reading_.power != DiskPower::Awake || !session.createPlugin()) {
        session.reading_.denied = device.isDenied();
        return session.reading_;
    }
    if (request.identity) {
        session.loadDeviceInfo();
        const auto& identity = session.reading_.identity;
        session.reading_.switchedOff = identity && identity->smartSupported && !identity->smartEnabled;
        if (session.reading_.switchedOff) {
            return session.reading_;
        }
    }
    session.loadDefinitions();
    // Twice on purpose: some disks answer the first question with what they found at the last one.
    session.update();
    session.update();
    session.reading_.denied = !session.reading_.data && !session.reading_.health && device.isDenied();
    return session.reading_;
}

bool SMARTSession::createPlugin()
{
    open_ = open_ || device_.open();
    reading_.supported = open_;
    return open_;
}

void SMARTSession::destroyPlugin()
{
    open_ = false;
    device_.close(); // asking whether it sleeps may have opened it, too
}

void SMARTSession::loadDeviceInfo()
{
    if (request_.kind == SMARTKind::NVMe) {
        take(reading_.controller, device_.identifyController(), &parseNVMeIdentity);
    } else {
        take(reading_.identity, device_.identify(), &parseATAIdentity);
    }
}

void SMARTSession::loadDefinitions()
{
    if (request_.definitions && reading_.identity) {
        const auto& identity = *reading_.identity;
        reading_.definitions =
            definitionsFor(device_.driveDatabase(), identity.model.value_or(""), identity.firmware.value_or(""));
    }
}

bool SMARTSession::enableSMARTCommands() { return device_.enableOperations(true) && device_.enableAutosave(true); }

void SMARTSession::disableSMART()
{
    device_.enableAutosave(false);
    device_.enableOperations(false);
}

void SMARTSession::update()
{
    if (request_.kind == SMARTKind::NVMe) {
        take(reading_.health, device_.readHealthLog(), &parseNVMeHealth);
        return;
    }
    take(reading_.data, device_.readData(), &parseSMARTData);
    if (request_.thresholds && !reading_.thresholds) {
        take(reading_.thresholds, device_.readThresholds(), &parseSMARTThresholds);
    }
    if (const auto failing = device_.isFailing()) {
        reading_.failing = failing;
    }
}

} // namespace meridal
