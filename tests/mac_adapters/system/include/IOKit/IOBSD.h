// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tests/mac_adapters/system/Declare.h"

MAC_TEXT(kIOBSDNameKey, "BSD Name");
