// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <CoreFoundation/CoreFoundation.h>

MAC_CONSTANT(UInt32, kIOMessageCanSystemSleep, 0xE0000270U);
MAC_CONSTANT(UInt32, kIOMessageSystemWillSleep, 0xE0000280U);
MAC_CONSTANT(UInt32, kIOMessageSystemHasPoweredOn, 0xE0000300U);
