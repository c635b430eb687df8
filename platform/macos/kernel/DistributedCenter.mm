// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/kernel/DistributedCenter.h"

#include "base/Lifetime.h"

#import <Foundation/Foundation.h>

#include <utility>

@interface MRDDistributedObserver : NSObject
- (instancetype)initWithHandler:(meridal::Task)handler;
- (void)received:(NSNotification*)notification;
@end

@implementation MRDDistributedObserver {
    meridal::Task _handler;
}

- (instancetype)initWithHandler:(meridal::Task)handler
{
    if ((self = [super init])) {
        _handler = std::move(handler);
    }
    return self;
}

- (void)received:(NSNotification*)__unused notification
{
    @autoreleasepool {
        _handler();
    }
}

@end

namespace meridal {

namespace {

NSString* asString(const std::string& name)
{
    NSString* string = [NSString stringWithUTF8String:name.c_str()];
    return string ? string : @"";
}

class RunningObservation final : public DistributedNotifications::Observation {
public:
    RunningObservation(Runtime& runtime, const std::string& name, Task handler)
    {
        // Through the main queue whatever thread it arrives on; guarded, for one that is under way when this ends.
        observer_ = [[MRDDistributedObserver alloc]
            initWithHandler:[&runtime, task = Task(lifetime_.guard(std::move(handler)))] {
                runtime.mainQueue().post(task);
            }];
        [NSDistributedNotificationCenter.defaultCenter addObserver:observer_
                                                          selector:@selector(received:)
                                                              name:asString(name)
                                                            object:nil
                                                suspensionBehavior:NSNotificationSuspensionBehaviorDeliverImmediately];
    }
    ~RunningObservation() override { [NSDistributedNotificationCenter.defaultCenter removeObserver:observer_]; }
    RunningObservation(const RunningObservation&) = delete;
    RunningObservation& operator=(const RunningObservation&) = delete;

private:
    Lifetime lifetime_;
    MRDDistributedObserver* observer_ = nil;
};

} // namespace

void DistributedCenter::post(const std::string& name)
{
    [NSDistributedNotificationCenter.defaultCenter
        postNotificationName:asString(name)
                      object:nil
                    userInfo:nil
                     options:NSDistributedNotificationDeliverImmediately | NSDistributedNotificationPostToAllSessions];
}

std::unique_ptr<DistributedNotifications::Observation> DistributedCenter::observe(
    const std::string& name, std::function<void()> handler)
{
    return std::make_unique<RunningObservation>(runtime_, name, std::move(handler));
}

} // namespace meridal
