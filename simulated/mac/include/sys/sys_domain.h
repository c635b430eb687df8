// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "simulated/mac/Declare.h"

MAC_CONSTANT(int, PF_SYSTEM, 32);
MAC_CONSTANT(int, AF_SYSTEM, 32);
MAC_CONSTANT(int, SYSPROTO_CONTROL, 2);
MAC_CONSTANT(int, AF_SYS_CONTROL, 2);
