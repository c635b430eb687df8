// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "simulated/mac/Declare.h"

#ifndef MERIDAL_BESIDE_REAL_HEADERS
#include <cstdint>

using Boolean = unsigned char;
using UInt8 = std::uint8_t;
using UInt16 = std::uint16_t;
using UInt32 = std::uint32_t;
using SInt32 = std::int32_t;
using UInt64 = std::uint64_t;
using CFIndex = long;
using CFTypeID = unsigned long;
using CFOptionFlags = unsigned long;
using CFStringEncoding = UInt32;
using CFNumberType = CFIndex;
using CFAbsoluteTime = double;
using CFComparisonResult = CFIndex;
using CFStringCompareFlags = CFOptionFlags;

using CFTypeRef = const void*;
using CFPropertyListRef = CFTypeRef;
using CFAllocatorRef = const struct __CFAllocator*;
using CFStringRef = const struct __CFString*;
using CFDataRef = const struct __CFData*;
using CFNumberRef = const struct __CFNumber*;
using CFBooleanRef = const struct __CFBoolean*;
using CFDateRef = const struct __CFDate*;
using CFArrayRef = const struct __CFArray*;
using CFDictionaryRef = const struct __CFDictionary*;
using CFMutableDictionaryRef = struct __CFDictionary*;
using CFUUIDRef = const struct __CFUUID*;
using CFBundleRef = struct __CFBundle*;

struct CFRange {
    CFIndex location;
    CFIndex length;
};
struct CFUUIDBytes {
    UInt8 byte0, byte1, byte2, byte3, byte4, byte5, byte6, byte7, byte8, byte9, byte10, byte11, byte12, byte13, byte14,
        byte15;
    bool operator==(const CFUUIDBytes&) const = default;
};
/// The collections here hold references to what is put in, as with the callbacks of that name, and with no other.
struct CFArrayCallBacks { };
struct CFDictionaryKeyCallBacks { };
struct CFDictionaryValueCallBacks { };

inline CFRange CFRangeMake(CFIndex location, CFIndex length) { return {location, length}; }
/// A string that lives as long as the program.
CFStringRef constantString(const char* text);
#define CFSTR(text) constantString(text)
#endif

MAC_CONSTANT(CFStringEncoding, kCFStringEncodingUTF8, 0x08000100);
MAC_CONSTANT(CFNumberType, kCFNumberSInt64Type, 4);
MAC_CONSTANT(CFNumberType, kCFNumberDoubleType, 13);
MAC_CONSTANT(CFIndex, kCFNotFound, -1);
MAC_CONSTANT(CFComparisonResult, kCFCompareEqualTo, 0);

extern "C" {
extern const CFAllocatorRef kCFAllocatorDefault;
extern const CFBooleanRef kCFBooleanTrue;
extern const CFBooleanRef kCFBooleanFalse;
extern const CFArrayCallBacks kCFTypeArrayCallBacks;
extern const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks;
extern const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks;
extern const double kCFAbsoluteTimeIntervalSince1970;

CFTypeRef CFRetain(CFTypeRef object);
void CFRelease(CFTypeRef object);
CFTypeID CFGetTypeID(CFTypeRef object);
Boolean CFEqual(CFTypeRef first, CFTypeRef second);

CFTypeID CFStringGetTypeID();
CFTypeID CFDataGetTypeID();
CFTypeID CFNumberGetTypeID();
CFTypeID CFBooleanGetTypeID();
CFTypeID CFDateGetTypeID();
CFTypeID CFArrayGetTypeID();
CFTypeID CFDictionaryGetTypeID();

CFStringRef CFStringCreateWithBytes(
    CFAllocatorRef allocator, const UInt8* bytes, CFIndex size, CFStringEncoding encoding, Boolean isExternal);
CFStringRef CFStringCreateWithFormat(CFAllocatorRef allocator, CFDictionaryRef options, CFStringRef format, ...);
CFIndex CFStringGetLength(CFStringRef string);
CFIndex CFStringGetMaximumSizeForEncoding(CFIndex length, CFStringEncoding encoding);
CFIndex CFStringGetBytes(CFStringRef string, CFRange range, CFStringEncoding encoding, UInt8 lossByte,
    Boolean isExternal, UInt8* buffer, CFIndex size, CFIndex* used);
CFComparisonResult CFStringCompare(CFStringRef first, CFStringRef second, CFStringCompareFlags options);

const UInt8* CFDataGetBytePtr(CFDataRef data);
CFIndex CFDataGetLength(CFDataRef data);

CFNumberRef CFNumberCreate(CFAllocatorRef allocator, CFNumberType type, const void* value);
Boolean CFNumberGetValue(CFNumberRef number, CFNumberType type, void* value);
Boolean CFNumberIsFloatType(CFNumberRef number);
Boolean CFBooleanGetValue(CFBooleanRef boolean);
CFAbsoluteTime CFDateGetAbsoluteTime(CFDateRef date);

CFArrayRef CFArrayCreate(
    CFAllocatorRef allocator, const void** values, CFIndex count, const CFArrayCallBacks* callbacks);
CFIndex CFArrayGetCount(CFArrayRef array);
const void* CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index);

CFDictionaryRef CFDictionaryCreate(CFAllocatorRef allocator, const void** keys, const void** values, CFIndex count,
    const CFDictionaryKeyCallBacks* keyCallbacks, const CFDictionaryValueCallBacks* valueCallbacks);
CFMutableDictionaryRef CFDictionaryCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
    const CFDictionaryKeyCallBacks* keyCallbacks, const CFDictionaryValueCallBacks* valueCallbacks);
void CFDictionarySetValue(CFMutableDictionaryRef dictionary, const void* key, const void* value);
const void* CFDictionaryGetValue(CFDictionaryRef dictionary, const void* key);
CFIndex CFDictionaryGetCount(CFDictionaryRef dictionary);
void CFDictionaryGetKeysAndValues(CFDictionaryRef dictionary, const void** keys, const void** values);

CFUUIDRef CFUUIDGetConstantUUIDWithBytes(CFAllocatorRef allocator, UInt8 byte0, UInt8 byte1, UInt8 byte2, UInt8 byte3,
    UInt8 byte4, UInt8 byte5, UInt8 byte6, UInt8 byte7, UInt8 byte8, UInt8 byte9, UInt8 byte10, UInt8 byte11,
    UInt8 byte12, UInt8 byte13, UInt8 byte14, UInt8 byte15);
CFUUIDBytes CFUUIDGetUUIDBytes(CFUUIDRef uuid);

CFBundleRef CFBundleGetMainBundle();
CFStringRef CFBundleGetIdentifier(CFBundleRef bundle);
}
