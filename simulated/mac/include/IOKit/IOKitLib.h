// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/IOKitKeys.h>
#include <dispatch/dispatch.h>
#include <mach/mach.h>

#ifndef MERIDAL_BESIDE_REAL_HEADERS
#include <cstddef>

using IOReturn = kern_return_t;
using IOOptionBits = UInt32;
using io_object_t = mach_port_t;
using io_iterator_t = io_object_t;
using io_registry_entry_t = io_object_t;
using io_service_t = io_object_t;
using io_connect_t = io_object_t;
using io_name_t = char[128];
using io_string_t = char[512];
using IONotificationPortRef = struct IONotificationPort*;
using IOServiceMatchingCallback = void (*)(void* context, io_iterator_t iterator);
using IOServiceInterestCallback = void (*)(void* context, io_service_t service, std::uint32_t type, void* argument);
#endif

MAC_CONSTANT(io_object_t, IO_OBJECT_NULL, 0);
MAC_CONSTANT(IOOptionBits, kNilOptions, 0);
MAC_CONSTANT(IOOptionBits, kIORegistryIterateRecursively, 1);
MAC_CONSTANT(IOReturn, kIOReturnSuccess, 0);
MAC_CONSTANT(IOReturn, kIOReturnError, 0xE00002BCU);
MAC_CONSTANT(IOReturn, kIOReturnNotPrivileged, 0xE00002C1U);
MAC_CONSTANT(IOReturn, kIOReturnBadArgument, 0xE00002C2U);
MAC_CONSTANT(IOReturn, kIOReturnExclusiveAccess, 0xE00002C5U);
MAC_CONSTANT(IOReturn, kIOReturnInternalError, 0xE00002C9U);
MAC_CONSTANT(IOReturn, kIOReturnNotOpen, 0xE00002CDU);
MAC_CONSTANT(IOReturn, kIOReturnNotPermitted, 0xE00002E2U);
MAC_CONSTANT(IOReturn, kIOReturnNotFound, 0xE00002F0U);

extern "C" {
kern_return_t IOObjectRelease(io_object_t object);
io_object_t IOIteratorNext(io_iterator_t iterator);

CFMutableDictionaryRef IOServiceMatching(const char* name);
CFMutableDictionaryRef IORegistryEntryIDMatching(std::uint64_t identifier);
io_service_t IOServiceGetMatchingService(mach_port_t port, CFDictionaryRef matching);
kern_return_t IOServiceGetMatchingServices(mach_port_t port, CFDictionaryRef matching, io_iterator_t* existing);

IONotificationPortRef IONotificationPortCreate(mach_port_t port);
void IONotificationPortDestroy(IONotificationPortRef port);
void IONotificationPortSetDispatchQueue(IONotificationPortRef port, dispatch_queue_t queue);
kern_return_t IOServiceAddMatchingNotification(IONotificationPortRef port, const io_name_t event,
    CFDictionaryRef matching, IOServiceMatchingCallback callback, void* context, io_iterator_t* notification);

io_registry_entry_t IORegistryEntryFromPath(mach_port_t port, const io_string_t path);
kern_return_t IORegistryEntryGetRegistryEntryID(io_registry_entry_t entry, std::uint64_t* identifier);
CFTypeRef IORegistryEntryCreateCFProperty(
    io_registry_entry_t entry, CFStringRef key, CFAllocatorRef allocator, IOOptionBits options);
kern_return_t IORegistryEntryCreateCFProperties(
    io_registry_entry_t entry, CFMutableDictionaryRef* properties, CFAllocatorRef allocator, IOOptionBits options);
CFTypeRef IORegistryEntrySearchCFProperty(
    io_registry_entry_t entry, const io_name_t plane, CFStringRef key, CFAllocatorRef allocator, IOOptionBits options);
kern_return_t IORegistryEntryGetParentEntry(
    io_registry_entry_t entry, const io_name_t plane, io_registry_entry_t* parent);
kern_return_t IORegistryEntryGetChildIterator(
    io_registry_entry_t entry, const io_name_t plane, io_iterator_t* iterator);

kern_return_t IOServiceOpen(io_service_t service, task_port_t owner, std::uint32_t type, io_connect_t* connection);
kern_return_t IOServiceClose(io_connect_t connection);
kern_return_t IOConnectCallScalarMethod(mach_port_t connection, std::uint32_t selector, const std::uint64_t* input,
    std::uint32_t inputCount, std::uint64_t* output, std::uint32_t* outputCount);
kern_return_t IOConnectCallStructMethod(mach_port_t connection, std::uint32_t selector, const void* input,
    std::size_t inputSize, void* output, std::size_t* outputSize);
}
