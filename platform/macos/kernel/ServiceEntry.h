// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/macos/kernel/CFRef.h"

#include <IOKit/IOKitLib.h>

namespace meridal {

/// The first driver service of a class in the I/O registry, or nothing. Released when it goes out of scope.
class ServiceEntry {
public:
    explicit ServiceEntry(const char* serviceClass);
    ~ServiceEntry();
    ServiceEntry(const ServiceEntry&) = delete;
    ServiceEntry& operator=(const ServiceEntry&) = delete;

    explicit operator bool() const { return entry_ != IO_OBJECT_NULL; }
    /// A property by its key (ASCII); null where there is none.
    CFRef<CFTypeRef> property(const char* key) const;
    /// All properties as they are now; null when there is no such service.
    CFRef<CFMutableDictionaryRef> properties() const;

private:
    io_service_t entry_ = IO_OBJECT_NULL;
};

} // namespace meridal
