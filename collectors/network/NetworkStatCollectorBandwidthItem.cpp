// SPDX-License-Identifier: Apache-2.0
#include "collectors/network/NetworkStatCollectorBandwidthItem.h"

namespace meridal {

void NetworkStatCollectorBandwidthItem::addReading(double sent, double received, double now)
{
    if (!started) {
        uploadStart = uploadLast = sent;
        downloadStart = downloadLast = received;
        started = true;
    }
    if (uploadLast > sent || downloadLast > received) {
        endRun(sent, received);
    }
    uploadLast = sent;
    downloadLast = received;
    lastUpdate = now;
}

void NetworkStatCollectorBandwidthItem::endRun(double sent, double received)
{
    uploadRunningTotal += uploadLast - uploadStart;
    downloadRunningTotal += downloadLast - downloadStart;
    uploadStart = uploadLast = sent;
    downloadStart = downloadLast = received;
}

BandwidthAmount NetworkStatCollectorBandwidthItem::amount() const
{
    return {.upload = uploadLast - uploadStart + uploadRunningTotal,
        .download = downloadLast - downloadStart + downloadRunningTotal};
}

BandwidthAmount NetworkStatCollectorBandwidthItem::takeAmount()
{
    const BandwidthAmount taken = amount();
    uploadStart = uploadLast;
    downloadStart = downloadLast;
    uploadRunningTotal = 0;
    downloadRunningTotal = 0;
    return taken;
}

} // namespace meridal
