// SPDX-License-Identifier: Apache-2.0
// Holds what tests/mac_adapters declares of macOS against the real headers. There is nothing in it to run.
#include <CoreFoundation/CFPlugInCOM.h>
#include <CoreFoundation/CoreFoundation.h>
#include <CoreGraphics/CGBase.h>
#include <IOKit/IOBSD.h>
#include <IOKit/IOCFPlugIn.h>
#include <IOKit/IOKitKeys.h>
#include <IOKit/IOKitLib.h>
#include <IOKit/IOMessage.h>
#include <IOKit/hidsystem/IOHIDEventSystemClient.h>
#include <IOKit/hidsystem/IOHIDServiceClient.h>
#include <IOKit/ps/IOPowerSources.h>
#include <IOKit/pwr_mgt/IOPMLib.h>
#include <IOKit/storage/IOBlockStorageDriver.h>
#include <IOKit/storage/ata/ATASMARTLib.h>
#include <IOKit/storage/nvme/NVMeSMARTLibExternal.h>
#include <SystemConfiguration/SystemConfiguration.h>
#include <dispatch/dispatch.h>
#include <libproc.h>
#include <mach/mach.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/proc.h>
#include <sys/proc_info.h>
#include <sys/resource.h>
#include <sys/sys_domain.h>
#include <sys/sysctl.h>
#include <sys/timex.h>

#include <sys/kern_control.h> // wants <sys/ioctl.h> first

#include <cstdint>

#define MERIDAL_BESIDE_REAL_HEADERS
#include "tests/mac_adapters/system/include/CoreFoundation/CoreFoundation.h"
#include "tests/mac_adapters/system/include/CoreGraphics/CGBase.h"
#include "tests/mac_adapters/system/include/IOKit/IOBSD.h"
#include "tests/mac_adapters/system/include/IOKit/IOCFPlugIn.h"
#include "tests/mac_adapters/system/include/IOKit/IOKitKeys.h"
#include "tests/mac_adapters/system/include/IOKit/IOKitLib.h"
#include "tests/mac_adapters/system/include/IOKit/IOMessage.h"
#include "tests/mac_adapters/system/include/IOKit/hidsystem/IOHIDEventSystemClient.h"
#include "tests/mac_adapters/system/include/IOKit/hidsystem/IOHIDServiceClient.h"
#include "tests/mac_adapters/system/include/IOKit/ps/IOPowerSources.h"
#include "tests/mac_adapters/system/include/IOKit/pwr_mgt/IOPMLib.h"
#include "tests/mac_adapters/system/include/IOKit/storage/IOBlockStorageDriver.h"
#include "tests/mac_adapters/system/include/IOKit/storage/ata/ATASMARTLib.h"
#include "tests/mac_adapters/system/include/IOKit/storage/nvme/NVMeSMARTLibExternal.h"
#include "tests/mac_adapters/system/include/SystemConfiguration/SystemConfiguration.h"
#include "tests/mac_adapters/system/include/libproc.h"
#include "tests/mac_adapters/system/include/mach/mach.h"
#include "tests/mac_adapters/system/include/mach/task_info.h"
#include "tests/mac_adapters/system/include/sys/kern_control.h"
#include "tests/mac_adapters/system/include/sys/mount.h"
#include "tests/mac_adapters/system/include/sys/proc_info.h"
#include "tests/mac_adapters/system/include/sys/resource.h"
#include "tests/mac_adapters/system/include/sys/sys_domain.h"
#include "tests/mac_adapters/system/include/sys/sysctl.h"
#include "tests/mac_adapters/system/include/sys/timex.h"
