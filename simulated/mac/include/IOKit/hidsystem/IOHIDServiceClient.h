// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#ifndef MERIDAL_BESIDE_REAL_HEADERS
using IOHIDServiceClientRef = struct __IOHIDServiceClient*;
#endif

extern "C" {
CFTypeRef IOHIDServiceClientCopyProperty(IOHIDServiceClientRef service, CFStringRef key);
}
