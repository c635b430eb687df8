#import <Foundation/Foundation.h>

#include "base/Log.h"
#include "base/Value.h"
#include "daemon/transport/XPCListener.h"
#include "daemon/transport/XPCProtocols.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <utility>

#include <unistd.h>

/// The client's side: hands every envelope to a handler.
@interface MRDTestClient : NSObject <ClientProtocol>
@property (copy) void (^handler)(NSDictionary*);
@end

@implementation MRDTestClient
- (void)daemonResponse:(NSDictionary*)response
{
    self.handler(response);
}
@end

namespace meridal {
namespace {

using testing::_;
using testing::InvokeArgument;
using testing::NiceMock;

class MockConnection : public ExportedConnection {
public:
    MOCK_METHOD(void, infoForPids, (Value, ValueReply), (override));
    MOCK_METHOD(void, version, (VersionReply), (override));
    MOCK_METHOD(void, fps, (NumberReply), (override));
    MOCK_METHOD(void, exists, (BoolReply), (override));
    MOCK_METHOD(void, enableHierachy, (), (override));
    MOCK_METHOD(void, disableHierachy, (), (override));
    MOCK_METHOD(void, startRequestWithKey, (std::int64_t, std::int64_t), (override));
    MOCK_METHOD(void, stopRequestWithKey, (std::int64_t), (override));
    MOCK_METHOD(void, smartTemps, (), (override));
    MOCK_METHOD(void, startSMARTStatus, (), (override));
    MOCK_METHOD(void, stopSMARTStatus, (), (override));
    MOCK_METHOD(void, startSMARTTemps, (), (override));
    MOCK_METHOD(void, stopSMARTTemps, (), (override));
    MOCK_METHOD(void, refreshDHCP, (std::string, ActionReply), (override));
    MOCK_METHOD(void, toggleAirPortPower, (ActionReply), (override));
    MOCK_METHOD(void, setNetworkSet, (std::string, ActionReply), (override));
    MOCK_METHOD(void, setFanSet, (Value), (override));
    MOCK_METHOD(void, setT2FanConfig, (Value, ValueReply), (override));
    MOCK_METHOD(void, setT2FanSet, (Value), (override));
    MOCK_METHOD(void, stopT2Fans, (ValueReply), (override));
    MOCK_METHOD(void, startT2Fans, (ValueReply), (override));
    MOCK_METHOD(void, finalizeT2Fans, (ValueReply), (override));
    MOCK_METHOD(void, setT2SafetyTemperature, (double), (override));
    MOCK_METHOD(void, sensors, (Value, ValueReply), (override));
    MOCK_METHOD(void, armSensors, (Value, ValueReply), (override));
    MOCK_METHOD(void, supportedSensors, (Value, ValueReply), (override));
    MOCK_METHOD(void, supportedFans, (Value, ValueReply), (override));
    MOCK_METHOD(void, ended, (), (override));
};

/// A real listener and a real connection, both in this process.
class XPCListenerTest : public testing::Test, public ListenerDelegate {
protected:
    XPCListenerTest()
    {
        connection = [[NSXPCConnection alloc] initWithListenerEndpoint:anonymous.endpoint];
        connection.remoteObjectInterface = [NSXPCInterface interfaceWithProtocol:@protocol(DaemonProtocol)];
        connection.exportedInterface = [NSXPCInterface interfaceWithProtocol:@protocol(ClientProtocol)];
        connection.exportedObject = client;
        [connection resume];
    }
    ~XPCListenerTest() override { [connection invalidate]; }

    std::shared_ptr<ExportedConnection> shouldAcceptNewConnection(std::shared_ptr<ClientLink> accepted) override
    {
        link = std::move(accepted);
        return exported;
    }

    /// Returns when the message has been answered, or when the connection has failed.
    id<DaemonProtocol> daemon()
    {
        return [connection synchronousRemoteObjectProxyWithErrorHandler:^(
            NSError* error) { ADD_FAILURE() << error.description.UTF8String; }];
    }

    /// Whether the semaphore was signalled within a time that no working system needs.
    static bool reached(dispatch_semaphore_t semaphore)
    {
        return dispatch_semaphore_wait(semaphore, dispatch_time(DISPATCH_TIME_NOW, 10 * int64_t{NSEC_PER_SEC})) == 0;
    }

    Log log;
    std::shared_ptr<NiceMock<MockConnection>> exported = std::make_shared<NiceMock<MockConnection>>();
    std::shared_ptr<ClientLink> link;
    MRDTestClient* client = [[MRDTestClient alloc] init];
    NSXPCListener* anonymous = [NSXPCListener anonymousListener];
    std::unique_ptr<XPCListener> listener = std::make_unique<XPCListener>(anonymous, *this, log);
    NSXPCConnection* connection;
};

TEST_F(XPCListenerTest, QuestionsAreAnsweredWithTheTypesOfTheInterface)
{
    EXPECT_CALL(*exported, version(_)).WillOnce(InvokeArgument<0>(6.6F, 1177));
    EXPECT_CALL(*exported, infoForPids(Value({1, 99}), _))
        .WillOnce(InvokeArgument<1>(Value::array({{{"name", "launchd"}, {"pid", 1}}})));

    __block float version = 0;
    __block NSInteger build = 0;
    [daemon() version:^(float gotVersion, NSInteger gotBuild) {
        version = gotVersion;
        build = gotBuild;
    }];
    EXPECT_EQ(version, 6.6F);
    EXPECT_EQ(build, 1177);

    __block NSArray* processes = nil;
    [daemon() infoForPids:@[ @1, @99 ] reply:^(NSArray<NSDictionary*>* found) { processes = found; }];
    NSArray* const expected = @[ @{@"name" : @"launchd", @"pid" : @1} ];
    EXPECT_TRUE([processes isEqual:expected]);
    EXPECT_TRUE(link->peer().known);
    EXPECT_EQ(link->peer().uid, getuid());
    EXPECT_EQ(listener->statistics().requests, 2U);
}

TEST_F(XPCListenerTest, EnvelopesReachTheClientNewestOfEachTypeAtLeast)
{
    ON_CALL(*exported, exists(_)).WillByDefault(InvokeArgument<0>(true));
    [daemon() exists:^(BOOL){}];

    const dispatch_semaphore_t last = dispatch_semaphore_create(0);
    client.handler = ^(NSDictionary* response) {
        if ([response[@"figure"] isEqual:@999]) {
            dispatch_semaphore_signal(last);
        }
    };
    for (int figure = 0; figure < 1000; ++figure) {
        link->daemonResponse(std::make_shared<const Envelope>(Dictionary{{"type", "1"}, {"figure", figure}}));
    }
    EXPECT_TRUE(reached(last));
    const auto statistics = listener->statistics();
    EXPECT_EQ(statistics.envelopesSent + statistics.envelopesDropped, 1000U);
}

TEST_F(XPCListenerTest, ClientThatLeavesEndsItsConnectionOnce)
{
    ON_CALL(*exported, exists(_)).WillByDefault(InvokeArgument<0>(true));
    [daemon() exists:^(BOOL){}];
    EXPECT_EQ(listener->statistics().openConnections, 1U);

    const dispatch_semaphore_t gone = dispatch_semaphore_create(0);
    EXPECT_CALL(*exported, ended()).WillOnce([gone] { dispatch_semaphore_signal(gone); });
    [connection invalidate];
    EXPECT_TRUE(reached(gone));
    listener.reset();                                                                  // waits for the rest of the end
    link->daemonResponse(std::make_shared<const Envelope>(Dictionary{{"type", "1"}})); // dropped, no crash
}

TEST_F(XPCListenerTest, DestroyingTheListenerEndsItsConnections)
{
    ON_CALL(*exported, exists(_)).WillByDefault(InvokeArgument<0>(true));
    [daemon() exists:^(BOOL){}];
    EXPECT_CALL(*exported, ended());
    listener.reset();
}

} // namespace
} // namespace meridal
