// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "simulated/mac/Declare.h"

MAC_TEXT(kIOBSDNameKey, "BSD Name");
