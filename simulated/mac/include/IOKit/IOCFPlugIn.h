// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <IOKit/IOKitLib.h>

#ifndef MERIDAL_BESIDE_REAL_HEADERS
using HRESULT = SInt32;
using ULONG = UInt32;
using LPVOID = void*;
using REFIID = CFUUIDBytes;

struct MacUnknown {
    void* _reserved;
    HRESULT (*QueryInterface)(void* self, REFIID identifier, LPVOID* found);
    ULONG (*AddRef)(void* self);
    ULONG (*Release)(void* self);
};
struct IOCFPlugInInterface : MacUnknown {
    UInt16 version;
    UInt16 revision;
    IOReturn (*Probe)(void* self, CFDictionaryRef properties, io_service_t service, SInt32* order);
    IOReturn (*Start)(void* self, CFDictionaryRef properties, io_service_t service);
    IOReturn (*Stop)(void* self);
};
#define kIOCFPlugInInterfaceID                                                                                         \
    CFUUIDGetConstantUUIDWithBytes(                                                                                    \
        nullptr, 0xC2, 0x44, 0xE8, 0x58, 0x10, 0x9C, 0x11, 0xD4, 0x91, 0xD4, 0x00, 0x50, 0xE4, 0xC6, 0x42, 0x6F)
#endif

MAC_CONSTANT(HRESULT, S_OK, 0);

extern "C" {
kern_return_t IOCreatePlugInInterfaceForService(io_service_t service, CFUUIDRef plugInType, CFUUIDRef interfaceType,
    IOCFPlugInInterface*** interface, SInt32* score);
kern_return_t IODestroyPlugInInterface(IOCFPlugInInterface** interface);
}
