// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <IOKit/IOCFPlugIn.h>

#ifndef MERIDAL_BESIDE_REAL_HEADERS
struct NVMeSMARTData {
    UInt8 bytes[512];
};

struct IONVMeSMARTInterface : MacUnknown {
    UInt16 version;
    UInt16 revision;
    IOReturn (*SMARTReadData)(void* self, NVMeSMARTData* data);
    IOReturn (*GetIdentifyData)(void* self, void* data, std::uint32_t space);
};
#define kIONVMeSMARTUserClientTypeID                                                                                   \
    CFUUIDGetConstantUUIDWithBytes(                                                                                    \
        nullptr, 0xAA, 0x0F, 0xA6, 0xF9, 0xC2, 0xD6, 0x45, 0x7F, 0xB1, 0x0B, 0x59, 0xA1, 0x32, 0x53, 0x29, 0x2F)
#define kIONVMeSMARTInterfaceID                                                                                        \
    CFUUIDGetConstantUUIDWithBytes(                                                                                    \
        nullptr, 0xCC, 0xD1, 0xDB, 0x19, 0xFD, 0x9A, 0x4D, 0xAF, 0xBF, 0x95, 0x12, 0x45, 0x4B, 0x23, 0x0A, 0xB6)
#endif
