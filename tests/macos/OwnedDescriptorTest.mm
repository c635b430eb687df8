// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/kernel/OwnedDescriptor.h"

#import <Foundation/Foundation.h>

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace meridal {
namespace {

/// Serves the main queue until the condition holds, or for far longer than it should take.
template <typename Condition>
bool served(Condition condition)
{
    NSDate* const limit = [NSDate dateWithTimeIntervalSinceNow:10];
    while (!condition() && limit.timeIntervalSinceNow > 0) {
        [NSRunLoop.mainRunLoop runMode:NSDefaultRunLoopMode beforeDate:[NSDate dateWithTimeIntervalSinceNow:0.01]];
    }
    return condition();
}

TEST(OwnedDescriptor, IsClosedOnceAfterItsWatchHasEnded)
{
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    int events = 0;
    std::unique_ptr<Watch> watch = watchOwned(ends[0], [&] {
        ++events;
        watch.reset(); // by its own task
    });
    ASSERT_EQ(write(ends[1], "x", 1), 1);
    EXPECT_TRUE(served([&] { return fcntl(ends[0], F_GETFD) < 0 && errno == EBADF; }));
    EXPECT_EQ(events, 1);
    close(ends[1]);
}

} // namespace
} // namespace meridal
