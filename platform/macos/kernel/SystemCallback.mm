// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/kernel/SystemCallback.h"

#import <Foundation/Foundation.h>

namespace meridal {

void runCallback(const std::function<void()>& body)
{
    @autoreleasepool {
        body();
    }
}

std::optional<std::string> runCatching(const std::function<void()>& body)
{
    @autoreleasepool {
        @try {
            body();
        } @catch (NSException* exception) {
            NSString* const words = exception.reason ? exception.reason : exception.name;
            return words.UTF8String ? words.UTF8String : "";
        }
    }
    return std::nullopt;
}

} // namespace meridal
