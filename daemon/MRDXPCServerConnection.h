// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Runtime.h"
#include "collectors/sensors/ClientSensors.h"
#include "collectors/sensors/PowerAverages.h"
#include "wire/Link.h"
#include "wire/RequestKey.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace meridal {

class MeridalDaemon;

/// One client: the object exported to it, with its request mask. The protocol's methods may be called on any thread;
/// each does its work on the main queue, in the order of the calls, so that masks, lists and timers meet nowhere
/// else. What only touches the main queue says so.
class MRDXPCServerConnection final : public ExportedConnection,
                                     public std::enable_shared_from_this<MRDXPCServerConnection> {
public:
    MRDXPCServerConnection(MeridalDaemon& daemon, std::shared_ptr<ClientLink> client);

    // DaemonProtocol
    void infoForPids(Value pids, ValueReply reply) override;
    void version(VersionReply reply) override;
    void fps(NumberReply reply) override;
    void exists(BoolReply reply) override;
    void enableHierachy() override;
    void disableHierachy() override;
    void startRequestWithKey(std::int64_t key, std::int64_t interval) override;
    void stopRequestWithKey(std::int64_t key) override;
    void smartTemps() override;
    void startSMARTStatus() override;
    void stopSMARTStatus() override;
    void startSMARTTemps() override;
    void stopSMARTTemps() override;
    void refreshDHCP(std::string interfaceName, ActionReply done) override;
    void toggleAirPortPower(ActionReply done) override;
    void setNetworkSet(std::string identifier, ActionReply done) override;
    void setFanSet(Value set) override;
    void setT2FanConfig(Value config, ValueReply reply) override;
    void setT2FanSet(Value set) override;
    void stopT2Fans(ValueReply reply) override;
    void startT2Fans(ValueReply reply) override;
    void finalizeT2Fans(ValueReply reply) override;
    void setT2SafetyTemperature(double degrees) override;
    void sensors(Value configurations, ValueReply reply) override;
    void armSensors(Value selection, ValueReply reply) override;
    void supportedSensors(Value selection, ValueReply reply) override;
    void supportedFans(Value selection, ValueReply reply) override;

    void ended() override;

    // Main queue only
    const Peer& peer() const { return peer_; }
    std::int64_t updateMask() const { return updateMask_; }
    bool useHierachy() const { return useHierachy_; }
    std::int64_t processInterval() const { return processInterval_; }
    bool holds(RequestKey key) const { return meridal::holds(updateMask_, key); }
    /// Adds a request to this client's mask and, for process lists, to the process collector's.
    void addMask(std::int64_t key);
    /// Takes a request off this client's mask and, when no other client wants it, off the process collector's.
    void removeMask(std::int64_t key);
    /// Releases every request, capture first.
    void removeMasks();
    /// Dropped when the client is gone.
    void sendData(const EnvelopePtr& envelope);

private:
    /// Runs a member function of this connection on the main queue; the connection lives until it has run.
    void onMain(Task task);
    void startRequest(std::int64_t key, std::int64_t interval);
    void sendCurrentLists(std::int64_t key);
    void startSMART(RequestKey key);
    PowerDetail powerDetail() const;
    std::optional<ClientSensors::Owner> sensorClient() const;

    MeridalDaemon& daemon_;
    std::shared_ptr<ClientLink> client_; ///< none once the client is gone
    Peer peer_;
    std::int64_t updateMask_ = 0;
    std::int64_t processInterval_ = 0; ///< as the client gave it; the cadence does not depend on it
    bool useHierachy_ = false;
};

} // namespace meridal
