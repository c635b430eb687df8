#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/hidsystem/IOHIDEventSystemClient.h>
#include <IOKit/hidsystem/IOHIDServiceClient.h>

#include <cstdint>

// The part of the HID event system that has no public header. The public way to a client gives one that has properties
// and no events.

using IOHIDEventRef = struct __IOHIDEvent*;

extern "C" {
/// A client that may ask services for events; to be released. Null when there is no event system.
IOHIDEventSystemClientRef IOHIDEventSystemClientCreate(CFAllocatorRef allocator);
/// Restricts the services to those with certain properties.
int IOHIDEventSystemClientSetMatching(IOHIDEventSystemClientRef client, CFDictionaryRef matching);
/// The service's latest event of a type, to be released; null when it has none.
IOHIDEventRef IOHIDServiceClientCopyEvent(
    IOHIDServiceClientRef service, std::int64_t type, std::int32_t options, std::int64_t timestamp);
double IOHIDEventGetFloatValue(IOHIDEventRef event, std::int32_t field);
}
