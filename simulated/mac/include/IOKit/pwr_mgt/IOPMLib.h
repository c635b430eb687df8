// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <IOKit/IOKitLib.h>

extern "C" {
io_connect_t IORegisterForSystemPower(
    void* context, IONotificationPortRef* port, IOServiceInterestCallback callback, io_object_t* notifier);
IOReturn IODeregisterForSystemPower(io_object_t* notifier);
IOReturn IOAllowPowerChange(io_connect_t rootDomain, std::intptr_t token);
}
