// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/kernel/ServiceEntry.h"

namespace meridal {

ServiceEntry::ServiceEntry(const char* serviceClass)
{
    // The look-up consumes the dictionary. The null port stands for the default one, whose constant changed its name.
    if (CFMutableDictionaryRef matching = IOServiceMatching(serviceClass)) {
        entry_ = IOServiceGetMatchingService(MACH_PORT_NULL, matching);
    }
}

ServiceEntry::~ServiceEntry()
{
    if (entry_ != IO_OBJECT_NULL) {
        IOObjectRelease(entry_);
    }
}

CFRef<CFTypeRef> ServiceEntry::property(const char* key) const
{
    if (entry_ == IO_OBJECT_NULL) {
        return {};
    }
    const CFRef<CFStringRef> name(CFStringCreateWithCString(kCFAllocatorDefault, key, kCFStringEncodingASCII));
    if (!name) {
        return {};
    }
    return CFRef<CFTypeRef>(IORegistryEntryCreateCFProperty(entry_, name.get(), kCFAllocatorDefault, 0));
}

CFRef<CFMutableDictionaryRef> ServiceEntry::properties() const
{
    CFMutableDictionaryRef properties = nullptr;
    if (entry_ == IO_OBJECT_NULL
        || IORegistryEntryCreateCFProperties(entry_, &properties, kCFAllocatorDefault, 0) != KERN_SUCCESS) {
        return {};
    }
    return CFRef<CFMutableDictionaryRef>(properties);
}

} // namespace meridal
