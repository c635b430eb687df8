// SPDX-License-Identifier: Apache-2.0
#include "daemon/transport/XPCListener.h"

#include "daemon/transport/XPCClientLink.h"
#include "daemon/transport/XPCCounters.h"
#include "daemon/transport/XPCExportedObject.h"
#include "daemon/transport/XPCProtocols.h"

#import <Foundation/Foundation.h>

#include <utility>

/// The listener's delegate, which keeps the open connections. Its methods may be called on any thread.
@interface MRDXPCListenerDelegate : NSObject <NSXPCListenerDelegate>
- (instancetype)initWithDelegate:(meridal::ListenerDelegate&)delegate
                        counters:(std::shared_ptr<meridal::XPCCounters>)counters
                             log:(meridal::Log&)log;
/// Accepts nobody from here on, ends every open connection, and waits for them to have ended.
- (void)endAll;
@end

namespace {

/// For the first argument of a method or its reply. A position that the system does not accept raises; the others are still
/// worth having.
void allowClasses(NSSet<Class>* classes, NSXPCInterface* interface, SEL selector, BOOL ofReply)
{
    @try {
        [interface setClasses:classes forSelector:selector argumentIndex:0 ofReply:ofReply];
    } @catch (NSException*) {
    }
}

NSXPCInterface* exportedInterface()
{
    NSXPCInterface* interface = [NSXPCInterface interfaceWithProtocol:@protocol(DaemonProtocol)];
    // Their arguments and replies hold collections of collections.
    NSSet<Class>* classes =
        [NSSet setWithObjects:NSDictionary.class, NSArray.class, NSString.class, NSNumber.class, nil];
    for (SEL selector : {
             @selector(sensors:reply:), @selector(supportedFans:reply:), @selector(supportedSensors:reply:),
                 @selector(armSensors:reply:)
         }) {
        allowClasses(classes, interface, selector, NO);
        allowClasses(classes, interface, selector, YES);
    }
    // Theirs are declared as any object, of which the decoder wants to be told what may come: all that a property list has.
    classes = [classes setByAddingObjectsFromArray:@[ NSData.class, NSDate.class, NSNull.class ]];
    for (SEL selector : { @selector(setFanSet:), @selector(setT2FanSet:), @selector(setT2FanConfig:reply:) }) {
        allowClasses(classes, interface, selector, NO);
    }
    return interface;
}

} // namespace

@implementation MRDXPCListenerDelegate {
    meridal::ListenerDelegate* _delegate;
    std::shared_ptr<meridal::XPCCounters> _counters;
    meridal::Log* _log;
    dispatch_group_t _open;                       // entered for every connection until it has ended
    NSMutableSet<NSXPCConnection*>* _connections; // guarded by itself, as is the next; ended ones are not in it
    BOOL _closed;
}

- (instancetype)initWithDelegate:(meridal::ListenerDelegate&)delegate
                        counters:(std::shared_ptr<meridal::XPCCounters>)counters
                             log:(meridal::Log&)log
{
    if ((self = [super init])) {
        _delegate = &delegate;
        _counters = std::move(counters);
        _log = &log;
        _open = dispatch_group_create();
        _connections = [NSMutableSet set];
    }
    return self;
}

- (BOOL)listener:(NSXPCListener*)__unused listener shouldAcceptNewConnection:(NSXPCConnection*)connection
{
    @synchronized(_connections) {
        if (_closed) {
            return NO;
        }
        dispatch_group_enter(_open); // from here on endAll waits for this connection
    }
    const auto link = std::make_shared<meridal::XPCClientLink>(connection, _counters);
    auto exported = _delegate->shouldAcceptNewConnection(link); // without the lock: it may wait for another queue
    if (!exported) {
        link->close();
        dispatch_group_leave(_open);
        return NO;
    }
    [self start:connection link:link exported:std::move(exported)];
    return YES;
}

- (void)start:(NSXPCConnection*)connection
         link:(const std::shared_ptr<meridal::XPCClientLink>&)link
     exported:(std::shared_ptr<meridal::ExportedConnection>)exported
{
    MRDXPCExportedObject* object = [[MRDXPCExportedObject alloc] initWithConnection:std::move(exported)
                                                                           counters:_counters
                                                                                log:*_log
                                                                                uid:link->peer().uid];
    connection.exportedInterface = exportedInterface();
    connection.remoteObjectInterface = [NSXPCInterface interfaceWithProtocol:@protocol(ClientProtocol)];
    connection.exportedObject = object;
    ++_counters->acceptedConnections;
    ++_counters->openConnections;

    // The connection holds its handlers, so they hold it weakly; it is in _connections until one of them has run.
    __weak NSXPCConnection* weakConnection = connection;
    const std::shared_ptr<meridal::XPCClientLink> keptLink = link;
    void (^gone)(void) = ^{ [self connectionIsGone:weakConnection link:keptLink object:object]; };
    connection.interruptionHandler = gone;
    connection.invalidationHandler = gone;
    BOOL closed = NO;
    @synchronized(_connections) {
        [_connections addObject:connection];
        closed = _closed;
    }
    [connection resume];
    if (closed) {
        [connection invalidate]; // endAll came in between and did not see it
    }
}

/// The body of both handlers. Whichever comes first does the work: a client that has died is not waited for to come back,
/// it starts over with a connection of its own.
- (void)connectionIsGone:(NSXPCConnection*)connection
                    link:(std::shared_ptr<meridal::XPCClientLink>)link
                  object:(MRDXPCExportedObject*)object
{
    @synchronized(_connections) {
        if (!connection || ![_connections containsObject:connection]) {
            return;
        }
        [_connections removeObject:connection];
    }
    // Clearing the handlers may free the block that this runs in, and with it what only the block holds.
    NS_VALID_UNTIL_END_OF_SCOPE MRDXPCListenerDelegate* keptSelf = self;
    NS_VALID_UNTIL_END_OF_SCOPE MRDXPCExportedObject* keptObject = object;
    connection.interruptionHandler = nil;
    connection.invalidationHandler = nil;
    link->close();
    [keptObject end];
    [connection invalidate]; // an interrupted one is still valid, and must not be released so
    --keptSelf->_counters->openConnections;
    dispatch_group_leave(keptSelf->_open);
}

- (void)endAll
{
    NSSet<NSXPCConnection*>* open = nil;
    @synchronized(_connections) {
        _closed = YES;
        open = [_connections copy];
    }
    for (NSXPCConnection* connection in open) {
        [connection invalidate];
    }
    dispatch_group_wait(_open, dispatch_time(DISPATCH_TIME_NOW, 2 * static_cast<std::int64_t>(NSEC_PER_SEC)));
}

@end

namespace meridal {

struct XPCListener::State {
    std::shared_ptr<XPCCounters> counters = std::make_shared<XPCCounters>();
    NSXPCListener* listener = nil;
    MRDXPCListenerDelegate* delegate = nil; // the listener's own reference is weak
};

XPCListener::XPCListener(const std::string& machService, ListenerDelegate& delegate, Log& log)
    : XPCListener([[NSXPCListener alloc] initWithMachServiceName:[NSString stringWithUTF8String:machService.c_str()]],
        delegate, log)
{
}

XPCListener::XPCListener(NSXPCListener* listener, ListenerDelegate& delegate, Log& log)
    : state_(std::make_unique<State>())
{
    state_->delegate = [[MRDXPCListenerDelegate alloc] initWithDelegate:delegate counters:state_->counters log:log];
    state_->listener = listener;
    listener.delegate = state_->delegate;
    [listener resume];
}

XPCListener::~XPCListener()
{
    [state_->listener invalidate];
    [state_->delegate endAll];
}

ListenerStatistics XPCListener::statistics() const { return state_->counters->read(); }

} // namespace meridal
