// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tests/mac_adapters/system/Declare.h"

#ifndef MERIDAL_BESIDE_REAL_HEADERS
using kern_return_t = int;
using natural_t = unsigned;
using mach_port_t = unsigned;
using task_port_t = mach_port_t;

mach_port_t mach_task_self();
#endif

MAC_CONSTANT(kern_return_t, KERN_SUCCESS, 0);
MAC_CONSTANT(mach_port_t, MACH_PORT_NULL, 0);
