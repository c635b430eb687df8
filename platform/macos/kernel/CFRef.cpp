// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/kernel/CFRef.h"

#include <cstddef>
#include <cstring>

namespace meridal {

namespace {

std::optional<std::string> textOfString(CFStringRef string)
{
    const CFIndex room = CFStringGetMaximumSizeForEncoding(CFStringGetLength(string), kCFStringEncodingUTF8);
    if (room == kCFNotFound) {
        return std::nullopt;
    }
    std::string text(static_cast<std::size_t>(room), '\0');
    CFIndex used = 0;
    // '?' stands for half a surrogate pair, which has no form in UTF-8.
    CFStringGetBytes(string, CFRangeMake(0, CFStringGetLength(string)), kCFStringEncodingUTF8, '?', false,
        reinterpret_cast<UInt8*>(text.data()), room, &used);
    text.resize(static_cast<std::size_t>(used));
    return text;
}

std::string textOfData(CFDataRef data)
{
    const auto* bytes = reinterpret_cast<const char*>(CFDataGetBytePtr(data));
    return {bytes, strnlen(bytes, static_cast<std::size_t>(CFDataGetLength(data)))};
}

} // namespace

CFRef<CFStringRef> stringOf(std::string_view text)
{
    return CFRef<CFStringRef>(CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(text.data()),
        static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8, 0));
}

std::optional<std::string> textOf(CFTypeRef object)
{
    if (!object) {
        return std::nullopt;
    }
    if (CFGetTypeID(object) == CFStringGetTypeID()) {
        return textOfString(static_cast<CFStringRef>(object));
    }
    if (CFGetTypeID(object) == CFDataGetTypeID()) {
        return textOfData(static_cast<CFDataRef>(object));
    }
    return std::nullopt;
}

} // namespace meridal
