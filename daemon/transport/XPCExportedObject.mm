// SPDX-License-Identifier: Apache-2.0
#include "daemon/transport/XPCExportedObject.h"

#include "base/Value.h"
#include "daemon/transport/XPCValues.h"

#include <fmt/format.h>

#include <mutex>
#include <string>
#include <utility>

namespace meridal {

namespace {

/// The way from messages to the daemon's object. The system promises no order between messages and the end of a
/// connection; the lock makes sure that no call is under way when `ended` is called, and none comes after.
class Gate {
public:
    Gate(std::shared_ptr<ExportedConnection> connection, std::shared_ptr<XPCCounters> counters)
        : connection_(std::move(connection)), counters_(std::move(counters))
    {
    }

    template <typename Call>
    void pass(Call call)
    {
        ++counters_->requests;
        const std::lock_guard lock(mutex_);
        if (connection_) {
            @autoreleasepool {
                call(static_cast<DaemonProtocol&>(*connection_));
            }
        }
    }

    void end()
    {
        const std::lock_guard lock(mutex_);
        if (const auto connection = std::exchange(connection_, nullptr)) {
            connection->ended();
        }
    }

    /// An argument of the class wanted as a value, else the empty one.
    Value argument(id object, Class wanted, Value empty)
    {
        if ([object isKindOfClass:wanted]) {
            if (auto value = valueFromObject(object)) {
                return std::move(*value);
            }
        }
        ++counters_->badRequests;
        return empty;
    }

    Value array(id object) { return argument(object, NSArray.class, Value::array()); }
    /// Of any kind, or none.
    Value anything(id object) { return object ? argument(object, NSObject.class, Value()) : Value(); }
    std::string text(id object) { return argument(object, NSString.class, "").get<std::string>(); }

    void countBadRequest() { ++counters_->badRequests; }

private:
    std::mutex mutex_;
    std::shared_ptr<ExportedConnection> connection_;
    const std::shared_ptr<XPCCounters> counters_;
};

using ArrayBlock = void (^)(NSArray*);
using DictionaryBlock = void (^)(NSDictionary*);

DaemonProtocol::ValueReply arrayReply(ArrayBlock reply)
{
    return [reply](const Value& value) {
        @autoreleasepool {
            id object = objectFromValue(value);
            reply([object isKindOfClass:NSArray.class] ? object : @[]);
        }
    };
}

DaemonProtocol::ValueReply dictionaryReply(DictionaryBlock reply)
{
    return [reply](const Value& value) {
        @autoreleasepool {
            id object = objectFromValue(value);
            reply([object isKindOfClass:NSDictionary.class] ? object : @{});
        }
    };
}

/// Actions have no reply in this protocol, so a failure is only logged.
DaemonProtocol::ActionReply logFailure(Log& log, std::uint32_t uid, const char* action)
{
    return [&log, uid, action](const Result<void>& result) {
        if (!result) {
            log.warning(fmt::format("{} for uid {} failed: {}", action, uid, result.error().message));
        }
    };
}

} // namespace

} // namespace meridal

using meridal::Value;

@implementation MRDXPCExportedObject {
    std::unique_ptr<meridal::Gate> _gate;
    meridal::Log* _log;
    std::uint32_t _uid;
}

- (instancetype)initWithConnection:(std::shared_ptr<meridal::ExportedConnection>)connection
                          counters:(std::shared_ptr<meridal::XPCCounters>)counters
                               log:(meridal::Log&)log
                               uid:(std::uint32_t)uid
{
    if ((self = [super init])) {
        _gate = std::make_unique<meridal::Gate>(std::move(connection), std::move(counters));
        _log = &log;
        _uid = uid;
    }
    return self;
}

- (void)end
{
    _gate->end();
}

/// Whether a message brought the reply block that it must have. Calling a block that is not there would end the daemon.
- (BOOL)canReplyTo:(id)reply
{
    if (!reply) {
        _gate->countBadRequest();
    }
    return reply != nil;
}

#pragma mark Questions

- (void)infoForPids:(NSArray<NSNumber*>*)pids reply:(void (^)(NSArray<NSDictionary*>*))reply
{
    if ([self canReplyTo:reply]) {
        _gate->pass([&](auto& daemon) { daemon.infoForPids(_gate->array(pids), meridal::arrayReply(reply)); });
    }
}

- (void)version:(void (^)(float, NSInteger))reply
{
    if ([self canReplyTo:reply]) {
        _gate->pass([&](auto& daemon) {
            daemon.version(
                [reply](float version, std::int64_t build) { reply(version, static_cast<NSInteger>(build)); });
        });
    }
}

- (void)fps:(void (^)(float))reply
{
    if ([self canReplyTo:reply]) {
        _gate->pass([&](auto& daemon) { daemon.fps([reply](double rate) { reply(static_cast<float>(rate)); }); });
    }
}

- (void)exists:(void (^)(BOOL))reply
{
    if ([self canReplyTo:reply]) {
        _gate->pass([&](auto& daemon) { daemon.exists([reply](bool exists) { reply(exists ? YES : NO); }); });
    }
}

- (void)sensors:(NSArray*)configurations reply:(void (^)(NSArray*))reply
{
    if ([self canReplyTo:reply]) {
        _gate->pass([&](auto& daemon) { daemon.sensors(_gate->array(configurations), meridal::arrayReply(reply)); });
    }
}

- (void)armSensors:(NSArray*)selection reply:(void (^)(NSArray*))reply
{
    if ([self canReplyTo:reply]) {
        _gate->pass([&](auto& daemon) { daemon.armSensors([self selection:selection], meridal::arrayReply(reply)); });
    }
}

- (void)supportedSensors:(NSArray*)selection reply:(void (^)(NSDictionary*))reply
{
    if ([self canReplyTo:reply]) {
        _gate->pass([&](auto& daemon) {
            daemon.supportedSensors([self selection:selection], meridal::dictionaryReply(reply));
        });
    }
}

- (void)supportedFans:(NSArray*)selection reply:(void (^)(NSArray*))reply
{
    if ([self canReplyTo:reply]) {
        _gate->pass(
            [&](auto& daemon) { daemon.supportedFans([self selection:selection], meridal::arrayReply(reply)); });
    }
}

/// A sensor selection may be any of the classes allowed for it.
- (Value)selection:(id)selection
{
    return _gate->argument(selection, NSObject.class, Value::array());
}

#pragma mark Requests

- (void)enableHierachy
{
    _gate->pass([](auto& daemon) { daemon.enableHierachy(); });
}

- (void)disableHierachy
{
    _gate->pass([](auto& daemon) { daemon.disableHierachy(); });
}

- (void)startRequestWithKey:(NSInteger)key interval:(NSInteger)interval
{
    _gate->pass([&](auto& daemon) { daemon.startRequestWithKey(key, interval); });
}

- (void)stopRequestWithKey:(NSInteger)key
{
    _gate->pass([&](auto& daemon) { daemon.stopRequestWithKey(key); });
}

- (void)smartTemps
{
    _gate->pass([](auto& daemon) { daemon.smartTemps(); });
}

- (void)startSMARTStatus
{
    _gate->pass([](auto& daemon) { daemon.startSMARTStatus(); });
}

- (void)stopSMARTStatus
{
    _gate->pass([](auto& daemon) { daemon.stopSMARTStatus(); });
}

- (void)startSMARTTemps
{
    _gate->pass([](auto& daemon) { daemon.startSMARTTemps(); });
}

- (void)stopSMARTTemps
{
    _gate->pass([](auto& daemon) { daemon.stopSMARTTemps(); });
}

#pragma mark Actions

- (void)refreshDHCP:(NSString*)interfaceName
{
    _gate->pass([&](auto& daemon) {
        daemon.refreshDHCP(_gate->text(interfaceName), meridal::logFailure(*_log, _uid, "refreshDHCP"));
    });
}

- (void)toggleAirPortPower
{
    _gate->pass(
        [&](auto& daemon) { daemon.toggleAirPortPower(meridal::logFailure(*_log, _uid, "toggleAirPortPower")); });
}

- (void)setNetworkSet:(NSString*)identifier
{
    _gate->pass([&](auto& daemon) {
        daemon.setNetworkSet(_gate->text(identifier), meridal::logFailure(*_log, _uid, "setNetworkSet"));
    });
}

#pragma mark Fans

- (void)setFanSet:(id)set
{
    _gate->pass([&](auto& daemon) { daemon.setFanSet(_gate->anything(set)); });
}

- (void)setT2FanConfig:(id)config reply:(void (^)(NSDictionary*))reply
{
    if ([self canReplyTo:reply]) {
        _gate->pass(
            [&](auto& daemon) { daemon.setT2FanConfig(_gate->anything(config), meridal::dictionaryReply(reply)); });
    }
}

- (void)setT2FanSet:(id)set
{
    _gate->pass([&](auto& daemon) { daemon.setT2FanSet(_gate->anything(set)); });
}

- (void)stopT2Fans:(void (^)(NSDictionary*))reply
{
    if ([self canReplyTo:reply]) {
        _gate->pass([&](auto& daemon) { daemon.stopT2Fans(meridal::dictionaryReply(reply)); });
    }
}

- (void)startT2Fans:(void (^)(NSDictionary*))reply
{
    if ([self canReplyTo:reply]) {
        _gate->pass([&](auto& daemon) { daemon.startT2Fans(meridal::dictionaryReply(reply)); });
    }
}

- (void)finalizeT2Fans:(void (^)(NSDictionary*))reply
{
    if ([self canReplyTo:reply]) {
        _gate->pass([&](auto& daemon) { daemon.finalizeT2Fans(meridal::dictionaryReply(reply)); });
    }
}

- (void)setT2SafetyTemperature:(NSNumber*)degrees
{
    if (![degrees isKindOfClass:NSNumber.class]) {
        _gate->countBadRequest();
        return;
    }
    _gate->pass([&](auto& daemon) { daemon.setT2SafetyTemperature(degrees.doubleValue); });
}

@end
