// SPDX-License-Identifier: Apache-2.0
#import <Foundation/Foundation.h>

#include "base/Log.h"
#include "base/Value.h"
#include "daemon/transport/XPCListener.h"
#include "daemon/transport/XPCProtocols.h"
#include "tests/transport/FakeDaemon.h"

#include <gtest/gtest.h>

#include <memory>
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
        exported->onEnded = [gone = gone] { dispatch_semaphore_signal(gone); };
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
    const dispatch_semaphore_t gone = dispatch_semaphore_create(0); ///< signalled at each end of the connection
    std::shared_ptr<test::FakeExportedConnection> exported = std::make_shared<test::FakeExportedConnection>();
    std::shared_ptr<ClientLink> link;
    MRDTestClient* client = [[MRDTestClient alloc] init];
    NSXPCListener* anonymous = [NSXPCListener anonymousListener];
    std::unique_ptr<XPCListener> listener = std::make_unique<XPCListener>(anonymous, *this, log);
    NSXPCConnection* connection;
};

TEST_F(XPCListenerTest, QuestionsAreAnsweredWithTheTypesOfTheInterface)
{
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
    NSArray* const expected = @[ @{@"name" : @"someone", @"pid" : @1}, @{@"name" : @"someone", @"pid" : @99} ];
    EXPECT_TRUE([processes isEqual:expected]);
    [daemon() setT2FanConfig:@[ @"any", @2 ] reply:^(NSDictionary*){}];
    EXPECT_EQ(exported->calls(),
        (std::vector<std::string>{
            "version: []", "infoForPids:reply: [[1,99]]", "setT2FanConfig:reply: [[\"any\",2]]"}));
    EXPECT_TRUE(link->peer().known);
    EXPECT_EQ(link->peer().uid, getuid());
    EXPECT_EQ(listener->statistics().requests, 3U);
}

TEST_F(XPCListenerTest, EnvelopesReachTheClientNewestOfEachTypeAtLeast)
{
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
    [daemon() exists:^(BOOL){}];
    EXPECT_EQ(listener->statistics().openConnections, 1U);

    [connection invalidate];
    EXPECT_TRUE(reached(gone));
    listener.reset();                                                                  // waits for the rest of the end
    link->daemonResponse(std::make_shared<const Envelope>(Dictionary{{"type", "1"}})); // dropped, no crash
    EXPECT_EQ(exported->calls(), (std::vector<std::string>{"exists: []", "ended []"}));
}

TEST_F(XPCListenerTest, DestroyingTheListenerEndsItsConnections)
{
    [daemon() exists:^(BOOL){}];
    listener.reset();
    EXPECT_TRUE(reached(gone));
}

} // namespace
} // namespace meridal
