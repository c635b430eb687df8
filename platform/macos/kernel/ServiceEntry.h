// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/macos/kernel/CFRef.h"
#include "platform/macos/kernel/IORegistryObject.h"

namespace meridal {

/// The first driver service of a class in the I/O registry, or nothing. Released when it goes out of scope.
class ServiceEntry {
public:
    explicit ServiceEntry(const char* serviceClass);

    explicit operator bool() const { return static_cast<bool>(entry_); }
    /// A property by its key; null where there is none.
    CFRef<CFTypeRef> property(const char* key) const;
    /// All properties as they are now; null when there is no such service.
    CFRef<CFMutableDictionaryRef> properties() const;

private:
    IOObjectOwner entry_;
};

} // namespace meridal
