// SPDX-License-Identifier: Apache-2.0
// Holds what tests/mac_adapters declares of macOS against the real headers. There is nothing in it to run.
#include <CoreFoundation/CFPlugInCOM.h>
#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/IOBSD.h>
#include <IOKit/IOCFPlugIn.h>
#include <IOKit/IOKitKeys.h>
#include <IOKit/IOKitLib.h>
#include <IOKit/IOMessage.h>
#include <IOKit/ps/IOPowerSources.h>
#include <IOKit/pwr_mgt/IOPMLib.h>
#include <IOKit/storage/IOBlockStorageDriver.h>
#include <IOKit/storage/ata/ATASMARTLib.h>
#include <IOKit/storage/nvme/NVMeSMARTLibExternal.h>
#include <SystemConfiguration/SystemConfiguration.h>
#include <dispatch/dispatch.h>
#include <mach/mach.h>

#include <cstdint>

#define MERIDAL_BESIDE_REAL_HEADERS
#include "tests/mac_adapters/system/include/CoreFoundation/CoreFoundation.h"
#include "tests/mac_adapters/system/include/IOKit/IOBSD.h"
#include "tests/mac_adapters/system/include/IOKit/IOCFPlugIn.h"
#include "tests/mac_adapters/system/include/IOKit/IOKitKeys.h"
#include "tests/mac_adapters/system/include/IOKit/IOKitLib.h"
#include "tests/mac_adapters/system/include/IOKit/IOMessage.h"
#include "tests/mac_adapters/system/include/IOKit/ps/IOPowerSources.h"
#include "tests/mac_adapters/system/include/IOKit/pwr_mgt/IOPMLib.h"
#include "tests/mac_adapters/system/include/IOKit/storage/IOBlockStorageDriver.h"
#include "tests/mac_adapters/system/include/IOKit/storage/ata/ATASMARTLib.h"
#include "tests/mac_adapters/system/include/IOKit/storage/nvme/NVMeSMARTLibExternal.h"
#include "tests/mac_adapters/system/include/SystemConfiguration/SystemConfiguration.h"
#include "tests/mac_adapters/system/include/mach/mach.h"
