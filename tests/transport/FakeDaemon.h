#pragma once

#include "base/Value.h"
#include "daemon/transport/Link.h"

#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace meridal::test {

/// One client's exported object that writes down what it was called with and answers as a daemon that has found nothing
/// on its machine.
class FakeExportedConnection final : public ExportedConnection {
public:
    void infoForPids(Value pids, ValueReply reply) override
    {
        record("infoForPids:reply:", pids);
        Value known = Value::array();
        for (Value& pid : pids) {
            known.push_back({{"name", "someone"}, {"pid", pid}});
        }
        reply(std::move(known));
    }
    void version(VersionReply reply) override
    {
        record("version:");
        reply(6.6F, 1177);
    }
    void fps(NumberReply reply) override
    {
        record("fps:");
        reply(60);
    }
    void exists(BoolReply reply) override
    {
        record("exists:");
        reply(true);
    }
    void enableHierachy() override { record("enableHierachy"); }
    void disableHierachy() override { record("disableHierachy"); }
    void startRequestWithKey(std::int64_t key, std::int64_t interval) override
    {
        record("startRequestWithKey:interval:", key, interval);
    }
    void stopRequestWithKey(std::int64_t key) override { record("stopRequestWithKey:", key); }
    void smartTemps() override { record("smartTemps"); }
    void startSMARTStatus() override { record("startSMARTStatus"); }
    void stopSMARTStatus() override { record("stopSMARTStatus"); }
    void startSMARTTemps() override { record("startSMARTTemps"); }
    void stopSMARTTemps() override { record("stopSMARTTemps"); }
    void refreshDHCP(std::string interfaceName, ActionReply done) override
    {
        record("refreshDHCP:", interfaceName);
        done(unexpected(ErrorCode::NotFound, "there is no such interface"));
    }
    void toggleAirPortPower(ActionReply done) override
    {
        record("toggleAirPortPower");
        done({});
    }
    void setNetworkSet(std::string identifier, ActionReply done) override
    {
        record("setNetworkSet:", identifier);
        done(unexpected(ErrorCode::NotPermitted, "not for you"));
    }
    void setFanSet(Value set) override { record("setFanSet:", set); }
    void setT2FanConfig(Value config, ValueReply reply) override
    {
        record("setT2FanConfig:reply:", config);
        reply({{"result", 1}});
    }
    void setT2FanSet(Value set) override { record("setT2FanSet:", set); }
    void stopT2Fans(ValueReply reply) override
    {
        record("stopT2Fans:");
        reply({{"result", 1}});
    }
    void startT2Fans(ValueReply reply) override
    {
        record("startT2Fans:");
        reply({{"result", 1}});
    }
    void finalizeT2Fans(ValueReply reply) override
    {
        record("finalizeT2Fans:");
        reply({{"result", 1}});
    }
    void setT2SafetyTemperature(double degrees) override { record("setT2SafetyTemperature:", degrees); }
    void sensors(Value configurations, ValueReply reply) override
    {
        record("sensors:reply:", configurations);
        reply(Value::array());
    }
    void armSensors(Value selection, ValueReply reply) override
    {
        record("armSensors:reply:", selection);
        reply(Value::array());
    }
    void supportedSensors(Value selection, ValueReply reply) override
    {
        record("supportedSensors:reply:", selection);
        reply({{"sensors", Value::array()}, {"fans", Value::array()}});
    }
    void supportedFans(Value selection, ValueReply reply) override
    {
        record("supportedFans:reply:", selection);
        reply(Value::array());
    }
    void ended() override
    {
        if (recording) {
            const std::lock_guard lock(mutex_);
            calls_.emplace_back("ended []");
        }
        if (onEnded) {
            onEnded();
        }
    }

    std::vector<std::string> calls() const
    {
        const std::lock_guard lock(mutex_);
        return calls_;
    }

    bool recording = true;
    /// Runs inside every call, before it answers. Set before the client is served.
    std::function<void(const std::string& selector, const Value& arguments)> onCall;
    std::function<void()> onEnded;

private:
    template <typename... Arguments>
    void record(const char* selector, const Arguments&... arguments)
    {
        Value given = Value::array();
        (given.push_back(arguments), ...);
        if (recording) {
            const std::lock_guard lock(mutex_);
            calls_.push_back(std::string(selector) + " " + serialise(given));
        }
        if (onCall) {
            onCall(selector, given);
        }
    }

    mutable std::mutex mutex_;
    std::vector<std::string> calls_; // "selector [arguments]"
};

/// A second interface of three methods.
class FakeNamedMethods final : public NamedMethods {
public:
    bool hasMethod(std::string_view name) const override
    {
        return name == "status" || name == "echo" || name == "broken";
    }
    void call(std::string_view name, const Value& parameters, const Peer& peer, Reply reply) override
    {
        if (name == "status") {
            reply(Value{{"uid", peer.uid}});
        } else if (name == "echo") {
            reply(parameters);
        } else {
            reply(unexpected(ErrorCode::Unavailable, "not now"));
        }
    }
};

} // namespace meridal::test
