// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/kernel/IORegistryObject.h"

#include "platform/macos/kernel/CFRef.h"
#include "platform/macos/kernel/CFValue.h"

#include <fmt/format.h>

#include <charconv>
#include <cstdint>

namespace meridal {

std::string IORegistryObject::path() const
{
    std::uint64_t identifier = 0;
    IORegistryEntryGetRegistryEntryID(entry_.get(), &identifier);
    return fmt::format("{:#x}", identifier);
}

IORegistryObject IORegistryObject::atPath(std::string_view path)
{
    constexpr std::size_t prefix = 2; // 0x
    constexpr int hexadecimal = 16;
    std::uint64_t identifier = 0;
    if (path.size() > prefix) {
        std::from_chars(path.data() + prefix, path.data() + path.size(), identifier, hexadecimal);
    }
    // The look-up consumes the dictionary.
    const CFMutableDictionaryRef matching = identifier != 0 ? IORegistryEntryIDMatching(identifier) : nullptr;
    return IORegistryObject(
        IOObjectOwner(matching ? IOServiceGetMatchingService(MACH_PORT_NULL, matching) : IO_OBJECT_NULL));
}

Value IORegistryObject::property(std::string_view key) const
{
    const CFRef<CFStringRef> name = stringOf(key);
    if (!name || !entry_) {
        return nullptr;
    }
    return valueOf(
        CFRef<CFTypeRef>(IORegistryEntryCreateCFProperty(entry_.get(), name.get(), kCFAllocatorDefault, 0)).get());
}

Value IORegistryObject::searchChildren(std::string_view key) const
{
    const CFRef<CFStringRef> name = stringOf(key);
    if (!name || !entry_) {
        return nullptr;
    }
    return valueOf(CFRef<CFTypeRef>(IORegistryEntrySearchCFProperty(entry_.get(), kIOServicePlane, name.get(),
                                        kCFAllocatorDefault, kIORegistryIterateRecursively))
                       .get());
}

RegistryEntryPtr IORegistryObject::parent() const
{
    IOObjectOwner above;
    if (IORegistryEntryGetParentEntry(entry_.get(), kIOServicePlane, above.receive()) != KERN_SUCCESS || !above) {
        return nullptr;
    }
    return std::make_shared<IORegistryObject>(std::move(above));
}

} // namespace meridal
