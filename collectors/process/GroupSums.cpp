// SPDX-License-Identifier: Apache-2.0
#include "collectors/process/GroupSums.h"

namespace meridal {

GroupSums& GroupSums::operator+=(const GroupSums& other)
{
    cpuUserSeconds += other.cpuUserSeconds;
    cpuSystemSeconds += other.cpuSystemSeconds;
    bytesRead += other.bytesRead;
    bytesWritten += other.bytesWritten;
    bytesReceived += other.bytesReceived;
    bytesSent += other.bytesSent;
    wakeups += other.wakeups;
    energyScore += other.energyScore;
    if (other.joules) {
        joules = joules.value_or(0) + *other.joules;
    }
    if (other.graphicsSeconds) {
        graphicsSeconds = graphicsSeconds.value_or(0) + *other.graphicsSeconds;
    }
    processesStarted += other.processesStarted;
    processesEnded += other.processesEnded;
    return *this;
}

const char* groupKindName(GroupKind kind)
{
    switch (kind) {
    case GroupKind::Application:
        return "application";
    case GroupKind::Other:
        return "other";
    case GroupKind::Kernel:
        break;
    }
    return "kernel";
}

} // namespace meridal
