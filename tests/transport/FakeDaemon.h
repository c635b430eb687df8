// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/Value.h"
#include "wire/Link.h"

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
    void fps(NumberReply reply) override { reply(recorded(60.0, "fps:")); }
    void exists(BoolReply reply) override { reply(recorded(true, "exists:")); }
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
        done(recorded(refused(ErrorCode::NotFound, "there is no such interface"), "refreshDHCP:", interfaceName));
    }
    void toggleAirPortPower(ActionReply done) override { done(recorded(Result<void>(), "toggleAirPortPower")); }
    void setNetworkSet(std::string identifier, ActionReply done) override
    {
        done(recorded(refused(ErrorCode::NotPermitted, "not for you"), "setNetworkSet:", identifier));
    }
    void setFanSet(Value set) override { record("setFanSet:", set); }
    void setT2FanConfig(Value config, ValueReply reply) override
    {
        reply(recorded(fanAnswer, "setT2FanConfig:reply:", config));
    }
    void setT2FanSet(Value set) override { record("setT2FanSet:", set); }
    void stopT2Fans(ValueReply reply) override { reply(recorded(fanAnswer, "stopT2Fans:")); }
    void startT2Fans(ValueReply reply) override { reply(recorded(fanAnswer, "startT2Fans:")); }
    void finalizeT2Fans(ValueReply reply) override { reply(recorded(fanAnswer, "finalizeT2Fans:")); }
    void setT2SafetyTemperature(double degrees) override { record("setT2SafetyTemperature:", degrees); }
    void sensors(Value configurations, ValueReply reply) override
    {
        reply(recorded(Value::array(), "sensors:reply:", configurations));
    }
    void armSensors(Value selection, ValueReply reply) override
    {
        reply(recorded(Value::array(), "armSensors:reply:", selection));
    }
    void supportedSensors(Value selection, ValueReply reply) override
    {
        const Value none = {{"sensors", Value::array()}, {"fans", Value::array()}};
        reply(recorded(none, "supportedSensors:reply:", selection));
    }
    void supportedFans(Value selection, ValueReply reply) override
    {
        reply(recorded(Value::array(), "supportedFans:reply:", selection));
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
    static Result<void> refused(ErrorCode code, const char* why) { return unexpected(code, why); }
    /// Writes a call down, and is its answer.
    template <typename Answer, typename... Arguments>
    Answer recorded(Answer answer, const char* selector, const Arguments&... arguments)
    {
        record(selector, arguments...);
        return answer;
    }
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

    const Value fanAnswer = {{"result", 1}};
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
    void call(std::string_view name, const Value& parameters, const Caller& caller, Reply reply) override
    {
        if (name == "status") {
            reply(Value{{"uid", caller.peer.uid}});
        } else if (name == "echo") {
            reply(parameters);
        } else {
            reply(unexpected(ErrorCode::Unavailable, "not now"));
        }
    }
};

} // namespace meridal::test
