// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/machine/LinuxClockSource.h"

#include <sys/timex.h>

namespace meridal {

bool LinuxClockSource::isSynchronised()
{
    timex clock = {}; // no modes: changes nothing, and needs no right
    return ::adjtimex(&clock) >= 0 && (clock.status & STA_UNSYNC) == 0;
}

} // namespace meridal
