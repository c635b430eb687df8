// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "simulated/mac/Declare.h"

MAC_TEXT(kIOBlockStorageDriverClass, "IOBlockStorageDriver");
MAC_TEXT(kIOBlockStorageDriverStatisticsKey, "Statistics");
MAC_TEXT(kIOBlockStorageDriverStatisticsBytesReadKey, "Bytes (Read)");
MAC_TEXT(kIOBlockStorageDriverStatisticsBytesWrittenKey, "Bytes (Write)");
MAC_TEXT(kIOBlockStorageDriverStatisticsReadsKey, "Operations (Read)");
MAC_TEXT(kIOBlockStorageDriverStatisticsWritesKey, "Operations (Write)");
MAC_TEXT(kIOBlockStorageDriverStatisticsTotalReadTimeKey, "Total Time (Read)");
MAC_TEXT(kIOBlockStorageDriverStatisticsTotalWriteTimeKey, "Total Time (Write)");
