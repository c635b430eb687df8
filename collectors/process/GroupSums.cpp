#include "collectors/process/GroupSums.h"

#include <algorithm>

namespace meridal {

namespace {

/// Of a counter that was never to go back: nothing, if it did.
std::uint64_t grown(std::uint64_t now, std::uint64_t before) { return now > before ? now - before : 0; }
double grown(double now, double before) { return std::max(0.0, now - before); }

} // namespace

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
    processesStarted += other.processesStarted;
    processesEnded += other.processesEnded;
    return *this;
}

GroupSums GroupSums::since(const GroupSums& earlier) const
{
    GroupSums between;
    between.cpuUserSeconds = grown(cpuUserSeconds, earlier.cpuUserSeconds);
    between.cpuSystemSeconds = grown(cpuSystemSeconds, earlier.cpuSystemSeconds);
    between.bytesRead = grown(bytesRead, earlier.bytesRead);
    between.bytesWritten = grown(bytesWritten, earlier.bytesWritten);
    between.bytesReceived = grown(bytesReceived, earlier.bytesReceived);
    between.bytesSent = grown(bytesSent, earlier.bytesSent);
    between.wakeups = grown(wakeups, earlier.wakeups);
    between.energyScore = grown(energyScore, earlier.energyScore);
    if (joules) {
        between.joules = grown(*joules, earlier.joules.value_or(0));
    }
    between.processesStarted = grown(processesStarted, earlier.processesStarted);
    between.processesEnded = grown(processesEnded, earlier.processesEnded);
    return between;
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
