// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Result.h"
#include "base/ValueFwd.h"
#include "wire/Envelope.h"

#include <cstdint>
#include <functional>
#include <string>

namespace meridal {

/// What a client may ask of the daemon: the 27 methods, whatever carries them. The transport calls them one at a time
/// per connection, from any thread; arguments have the types given here, their content is the client's and may be
/// nonsense. A reply is called exactly once, on any thread.
class DaemonProtocol {
public:
    using ValueReply = std::function<void(Value)>;
    using NumberReply = std::function<void(double)>;
    using BoolReply = std::function<void(bool)>;
    using VersionReply = std::function<void(float version, std::int64_t build)>;
    /// How an action ended, for transports that can say so.
    using ActionReply = std::function<void(Result<void>)>;

    virtual ~DaemonProtocol() = default;

    virtual void infoForPids(Value pids, ValueReply reply) = 0; ///< array of numbers → array of {"name", "pid"}
    virtual void version(VersionReply reply) = 0;               ///< 6.6, 1177
    virtual void fps(NumberReply reply) = 0;                    ///< 0 where no frame rate can be had
    virtual void exists(BoolReply reply) = 0;
    virtual void enableHierachy() = 0;
    virtual void disableHierachy() = 0;
    virtual void startRequestWithKey(std::int64_t key, std::int64_t interval) = 0;
    virtual void stopRequestWithKey(std::int64_t key) = 0;
    virtual void smartTemps() = 0;
    virtual void startSMARTStatus() = 0;
    virtual void stopSMARTStatus() = 0;
    virtual void startSMARTTemps() = 0;
    virtual void stopSMARTTemps() = 0;
    virtual void refreshDHCP(std::string interfaceName, ActionReply done) = 0;
    virtual void toggleAirPortPower(ActionReply done) = 0;
    virtual void setNetworkSet(std::string identifier, ActionReply done) = 0;
    virtual void setFanSet(Value set) = 0;
    virtual void setT2FanConfig(Value config, ValueReply reply) = 0; ///< {"result": 1}, as the next four
    virtual void setT2FanSet(Value set) = 0;
    virtual void stopT2Fans(ValueReply reply) = 0;
    virtual void startT2Fans(ValueReply reply) = 0;
    virtual void finalizeT2Fans(ValueReply reply) = 0;
    virtual void setT2SafetyTemperature(double degrees) = 0;
    virtual void sensors(Value configurations, ValueReply reply) = 0;     ///< array of {"value", "key"}
    virtual void armSensors(Value selection, ValueReply reply) = 0;       ///< array
    virtual void supportedSensors(Value selection, ValueReply reply) = 0; ///< {"sensors", "fans"}
    virtual void supportedFans(Value selection, ValueReply reply) = 0;    ///< array
};

/// What the daemon may tell a client.
class ClientProtocol {
public:
    virtual ~ClientProtocol() = default;
    /// Sends an envelope. Never blocks and never fails: what a dead or stalled client does not take is dropped, older
    /// envelopes of the same type first.
    virtual void daemonResponse(const EnvelopePtr& envelope) = 0;
};

} // namespace meridal
