// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/kernel/SystemCallback.h"

#import <Foundation/Foundation.h>

#include <gtest/gtest.h>

#include <stdexcept>

namespace meridal {
namespace {

TEST(SystemCallback, CatchesWhatObjectiveCRaisesAndNothingElse)
{
    EXPECT_EQ(runCatching([] {}), std::nullopt);
    EXPECT_EQ(runCatching([] { [NSException raise:NSGenericException format:@"no %@", @"port"]; }), "no port");
    EXPECT_THROW(runCatching([] { throw std::runtime_error("ours"); }), std::runtime_error);
}

TEST(SystemCallback, WhatABodyLeavesBehindIsFreedAtOnce)
{
    __weak NSMutableString* left = nil;
    __weak NSMutableString** const place = &left;
    bool wasThere = false;
    runCallback([place, &wasThere] {
        {
            // Into the pool for certain: what a method returns may be released by its caller instead.
            __autoreleasing NSMutableString* const made = [[NSMutableString alloc] initWithString:@"left"];
            *place = made;
        }
        wasThere = *place != nil;
    });
    EXPECT_TRUE(wasThere) << "nothing but the pool held it";
    EXPECT_EQ(left, nil);
}

} // namespace
} // namespace meridal
