// SPDX-License-Identifier: Apache-2.0
#include "daemon/MRDXPCServerConnection.h"

#include "collectors/process/ProcessStatCollector.h"
#include "daemon/MRDXPCServer.h"
#include "daemon/MeridalDaemon.h"
#include "daemon/NetworkActions.h"
#include "daemon/SensorService.h"
#include "platform/Context.h"
#include "platform/host/Host.h"
#include "wire/Version.h"

#include <algorithm>
#include <iterator>
#include <utility>
#include <vector>

namespace meridal {

namespace {

// Masks add and subtract as numbers: a client that passes one bit a request sees a set, and one that passes several
// gets the sum it asked for. Unsigned, because a client may pass anything and the sum must not overflow.
std::int64_t sum(std::int64_t mask, std::int64_t key)
{
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(mask) + static_cast<std::uint64_t>(key));
}

std::int64_t difference(std::int64_t mask, std::int64_t key)
{
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(mask) - static_cast<std::uint64_t>(key));
}

Dictionary acknowledgement() { return {{"result", 1}}; }

/// The collector's lists are the low bits of the request keys; its mask takes what fits of a key.
std::uint32_t listBits(std::int64_t key) { return static_cast<std::uint32_t>(key); }

} // namespace

MRDXPCServerConnection::MRDXPCServerConnection(MeridalDaemon& daemon, std::shared_ptr<ClientLink> client)
    : daemon_(daemon), client_(std::move(client)), peer_(client_->peer())
{
}

void MRDXPCServerConnection::onMain(Task task)
{
    daemon_.context().runtime.mainQueue().post([self = shared_from_this(), task = std::move(task)] { task(); });
}

void MRDXPCServerConnection::ended()
{
    daemon_.server().release(peer_);
    onMain([this] {
        daemon_.services().sensors.forget(sensorClient());
        client_.reset();
        daemon_.server().removeConnection(shared_from_this());
        removeMasks();
        updateMask_ = 0;
    });
}

// Requests

void MRDXPCServerConnection::addMask(std::int64_t key)
{
    if ((updateMask_ & key) == 0) {
        updateMask_ = sum(updateMask_, key);
    }
    ProcessStatCollector& processes = daemon_.processes();
    if (key < mask(RequestKey::SmartTemperatures) && (processes.updateMask() & listBits(key)) == 0) {
        processes.setUpdateMask(processes.updateMask() + listBits(key));
    }
}

void MRDXPCServerConnection::removeMask(std::int64_t key)
{
    if ((updateMask_ & key) != 0) {
        updateMask_ = difference(updateMask_, key);
    }
    bool stillWanted = false;
    bool isCounted = false;
    for (const auto& other : daemon_.server().connections()) {
        stillWanted = stillWanted || (other.get() != this && (other->updateMask() & key) != 0);
        isCounted = isCounted || other->holds(RequestKey::Network);
    }
    if (meridal::holds(key, RequestKey::Network) && !isCounted) {
        daemon_.stopMonitoringNetworkActivity();
    }
    ProcessStatCollector& processes = daemon_.processes();
    if (!stillWanted && (processes.updateMask() & listBits(key)) != 0) {
        processes.setUpdateMask(processes.updateMask() - listBits(key));
    }
}

void MRDXPCServerConnection::removeMasks()
{
    using enum RequestKey;
    for (const RequestKey key : {Network, Cpu, Memory, Energy, Disk, SmartStatus, SmartTemperatures, InternalBattery}) {
        removeMask(mask(key));
    }
}

void MRDXPCServerConnection::sendData(const EnvelopePtr& envelope)
{
    if (client_) {
        client_->daemonResponse(envelope);
    }
}

void MRDXPCServerConnection::startRequestWithKey(std::int64_t key, std::int64_t interval)
{
    onMain([this, key, interval] { startRequest(key, interval); });
}

void MRDXPCServerConnection::startRequest(std::int64_t key, std::int64_t interval)
{
    if (!client_) {
        return; // ended meanwhile: nothing would ever take these bits off again
    }
    addMask(key);
    processInterval_ = interval;
    bool justRead = meridal::holds(key, RequestKey::Network) && daemon_.startMonitoringNetworkActivity();
    justRead = daemon_.readFiguresOf(key) || justRead;
    sendCurrentLists(key);
    daemon_.restartProcessTimer(!justRead);
}

void MRDXPCServerConnection::sendCurrentLists(std::int64_t key)
{
    using enum RequestKey;
    for (const RequestKey list : {Network, Cpu, Memory, Energy, Disk}) {
        if (meridal::holds(key, list)) {
            sendData(daemon_.processList(list, useHierachy_, peer_));
        }
    }
    if (meridal::holds(key, InternalBattery)) {
        sendData(daemon_.internalBatterySourceInfo());
    }
}

void MRDXPCServerConnection::stopRequestWithKey(std::int64_t key)
{
    onMain([this, key] {
        processInterval_ = 0;
        removeMask(key);
    });
}

void MRDXPCServerConnection::enableHierachy()
{
    onMain([this] { useHierachy_ = true; });
}

void MRDXPCServerConnection::disableHierachy()
{
    onMain([this] { useHierachy_ = false; });
}

void MRDXPCServerConnection::smartTemps()
{
    onMain([this] { daemon_.askDisks([self = shared_from_this()] { self->sendData(self->daemon_.smartSensors()); }); });
}

void MRDXPCServerConnection::startSMART(RequestKey key)
{
    if (!client_) {
        return;
    }
    addMask(mask(key));
    daemon_.askDisks([self = shared_from_this(), key] {
        if (self->holds(key)) { // still
            self->sendData(key == RequestKey::SmartStatus ? self->daemon_.smartStatus() : self->daemon_.smartSensors());
        }
    });
}

void MRDXPCServerConnection::startSMARTStatus()
{
    onMain([this] { startSMART(RequestKey::SmartStatus); });
}

void MRDXPCServerConnection::stopSMARTStatus()
{
    onMain([this] { removeMask(mask(RequestKey::SmartStatus)); });
}

void MRDXPCServerConnection::startSMARTTemps()
{
    onMain([this] { startSMART(RequestKey::SmartTemperatures); });
}

void MRDXPCServerConnection::stopSMARTTemps()
{
    onMain([this] { removeMask(mask(RequestKey::SmartTemperatures)); });
}

// Questions

void MRDXPCServerConnection::infoForPids(Value pids, ValueReply reply)
{
    onMain([this, pids = std::move(pids), reply = std::move(reply)] { reply(daemon_.infoForPids(pids, peer_)); });
}

void MRDXPCServerConnection::version(VersionReply reply) { reply(static_cast<float>(protocolVersion), protocolBuild); }

void MRDXPCServerConnection::fps(NumberReply reply)
{
    onMain([this, reply = std::move(reply)] { daemon_.frameRate().ask(reply); });
}

void MRDXPCServerConnection::exists(BoolReply reply) { reply(true); }

PowerDetail MRDXPCServerConnection::powerDetail() const { return powerDetailFor(peer_.isRoot()); }

/// A client that has gone names nothing any more: nobody would ever take it away.
SensorClient MRDXPCServerConnection::sensorClient() const
{
    const auto user = client_ ? peer_.user() : std::nullopt;
    return user ? SensorClient({.uid = *user, .client = this}) : std::nullopt;
}

void MRDXPCServerConnection::sensors(Value configurations, ValueReply reply)
{
    onMain([this, configurations = std::move(configurations), reply = std::move(reply)] {
        Value understood = Value::array();
        std::copy_if(configurations.begin(), configurations.end(), std::back_inserter(understood),
            [](const Value& each) { return each.is_object(); });
        const std::vector<double> values = daemon_.services().sensors.sensorValues(understood, powerDetail());
        Value readings = Value::array();
        for (std::size_t index = 0; index < values.size(); ++index) {
            Value reading{{"value", values[index]}};
            if (const Value* key = find(understood[index], "key"); key && !key->is_null()) {
                reading["key"] = *key; // one that has none is told by its place
            }
            readings.push_back(std::move(reading));
        }
        reply(std::move(readings));
    });
}

void MRDXPCServerConnection::armSensors(Value selection, ValueReply reply)
{
    onMain([this, selection = std::move(selection), reply = std::move(reply)] {
        SensorService& sensors = daemon_.services().sensors;
        Value both = sensors.supportedArmSensors(selection, sensorClient());
        for (Value& fan : sensors.supportedFans(selection, sensorClient())) {
            both.push_back(std::move(fan));
        }
        reply(std::move(both));
    });
}

void MRDXPCServerConnection::supportedSensors(Value selection, ValueReply reply)
{
    onMain([this, selection = std::move(selection), reply = std::move(reply)] {
        SensorService& sensors = daemon_.services().sensors;
        reply({{"sensors", sensors.supportedElectricSensors(selection, sensorClient(), powerDetail())},
            {"fans", sensors.supportedFans(selection, sensorClient())}});
    });
}

void MRDXPCServerConnection::supportedFans(Value selection, ValueReply reply)
{
    onMain([this, selection = std::move(selection), reply = std::move(reply)] {
        reply(daemon_.services().sensors.supportedFans(selection, sensorClient()));
    });
}

// Actions

void MRDXPCServerConnection::refreshDHCP(std::string interfaceName, ActionReply done)
{
    daemon_.networkActions().refreshDHCP(peer_, std::move(interfaceName), std::move(done));
}

void MRDXPCServerConnection::toggleAirPortPower(ActionReply done)
{
    daemon_.networkActions().toggleAirPortPower(peer_, std::move(done));
}

void MRDXPCServerConnection::setNetworkSet(std::string identifier, ActionReply done)
{
    daemon_.networkActions().setNetworkSet(peer_, std::move(identifier), std::move(done));
}

void MRDXPCServerConnection::setFanSet(Value set)
{
    onMain([this, set = std::move(set)] { daemon_.setFanSet(set); });
}

void MRDXPCServerConnection::setT2FanSet(Value set)
{
    onMain([this, set = std::move(set)] { daemon_.setT2FanSet(set); });
}

void MRDXPCServerConnection::setT2FanConfig(Value config, ValueReply reply)
{
    onMain([this, config = std::move(config), reply = std::move(reply)] {
        daemon_.setT2FanConfig(config);
        reply(acknowledgement());
    });
}

void MRDXPCServerConnection::stopT2Fans(ValueReply reply)
{
    onMain([this, reply = std::move(reply)] {
        daemon_.stopT2Fans();
        reply(acknowledgement());
    });
}

void MRDXPCServerConnection::startT2Fans(ValueReply reply)
{
    onMain([this, reply = std::move(reply)] {
        daemon_.startT2Fans();
        reply(acknowledgement());
    });
}

void MRDXPCServerConnection::finalizeT2Fans(ValueReply reply)
{
    onMain([this, reply = std::move(reply)] {
        daemon_.finalizeT2Fans();
        reply(acknowledgement());
    });
}

void MRDXPCServerConnection::setT2SafetyTemperature(double degrees)
{
    onMain([this, degrees] { daemon_.setT2SafetyTemperature(degrees); });
}

} // namespace meridal
