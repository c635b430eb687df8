// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#ifndef MERIDAL_BESIDE_REAL_HEADERS
using IOHIDEventSystemClientRef = struct __IOHIDEventSystemClient*;
#endif

extern "C" {
CFArrayRef IOHIDEventSystemClientCopyServices(IOHIDEventSystemClientRef client);
}
