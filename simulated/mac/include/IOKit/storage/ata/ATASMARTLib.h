// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <IOKit/IOCFPlugIn.h>

#ifndef MERIDAL_BESIDE_REAL_HEADERS
struct ATASMARTData {
    UInt8 bytes[512];
};
struct ATASMARTDataThresholds {
    UInt8 bytes[512];
};
struct ATASMARTLogDirectory;

struct IOATASMARTInterface : MacUnknown {
    UInt16 version;
    UInt16 revision;
    IOReturn (*SMARTEnableDisableOperations)(void* self, Boolean enable);
    IOReturn (*SMARTEnableDisableAutosave)(void* self, Boolean enable);
    IOReturn (*SMARTReturnStatus)(void* self, Boolean* exceeded);
    IOReturn (*SMARTExecuteOffLineImmediate)(void* self, Boolean extended);
    IOReturn (*SMARTReadData)(void* self, ATASMARTData* data);
    IOReturn (*SMARTValidateReadData)(void* self, const ATASMARTData* data);
    IOReturn (*SMARTReadDataThresholds)(void* self, ATASMARTDataThresholds* data);
    IOReturn (*SMARTReadLogDirectory)(void* self, ATASMARTLogDirectory* data);
    IOReturn (*SMARTReadLogAtAddress)(void* self, UInt32 address, void* buffer, UInt32 size);
    IOReturn (*SMARTWriteLogAtAddress)(void* self, UInt32 address, const void* buffer, UInt32 size);
    IOReturn (*GetATAIdentifyData)(void* self, void* buffer, UInt32 size, UInt32* outSize);
};
#define kIOATASMARTUserClientTypeID                                                                                    \
    CFUUIDGetConstantUUIDWithBytes(                                                                                    \
        nullptr, 0x24, 0x51, 0x4B, 0x7A, 0x28, 0x04, 0x11, 0xD6, 0x8A, 0x02, 0x00, 0x30, 0x65, 0x70, 0x48, 0x66)
#define kIOATASMARTInterfaceID                                                                                         \
    CFUUIDGetConstantUUIDWithBytes(                                                                                    \
        nullptr, 0x08, 0xAB, 0xE2, 0x1C, 0x20, 0xD4, 0x11, 0xD6, 0x8D, 0xF6, 0x00, 0x03, 0x93, 0x5A, 0x76, 0xB2)
#endif
