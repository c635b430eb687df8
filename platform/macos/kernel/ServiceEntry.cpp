// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/kernel/ServiceEntry.h"

namespace meridal {

ServiceEntry::ServiceEntry(const char* serviceClass)
{
    // The look-up consumes the dictionary. The null port stands for the default one, whose constant changed its name.
    if (CFMutableDictionaryRef matching = IOServiceMatching(serviceClass)) {
        entry_ = IOObjectOwner(IOServiceGetMatchingService(MACH_PORT_NULL, matching));
    }
}

CFRef<CFTypeRef> ServiceEntry::property(const char* key) const
{
    const CFRef<CFStringRef> name = stringOf(key);
    if (!entry_ || !name) {
        return {};
    }
    return CFRef<CFTypeRef>(IORegistryEntryCreateCFProperty(entry_.get(), name.get(), kCFAllocatorDefault, 0));
}

CFRef<CFMutableDictionaryRef> ServiceEntry::properties() const
{
    CFMutableDictionaryRef properties = nullptr;
    if (!entry_
        || IORegistryEntryCreateCFProperties(entry_.get(), &properties, kCFAllocatorDefault, 0) != KERN_SUCCESS) {
        return {};
    }
    return CFRef<CFMutableDictionaryRef>(properties);
}

} // namespace meridal
