// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "simulated/mac/Declare.h"

#include <ctime>

#ifndef MERIDAL_BESIDE_REAL_HEADERS
struct ntptimeval {
    timespec time;
    long maxerror, esterror, tai;
    int time_state;
};
#endif

MAC_CONSTANT(int, TIME_OK, 0);
MAC_CONSTANT(int, TIME_ERROR, 5);

extern "C" {
int ntp_gettime(ntptimeval* clock);
}
