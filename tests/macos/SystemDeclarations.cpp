// SPDX-License-Identifier: Apache-2.0
// Holds the functions and constants that simulated/mac declares of macOS against the real headers. There is nothing in it to run.
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
#include "simulated/mac/include/CoreFoundation/CoreFoundation.h"
#include "simulated/mac/include/CoreGraphics/CGBase.h"
#include "simulated/mac/include/IOKit/IOBSD.h"
#include "simulated/mac/include/IOKit/IOCFPlugIn.h"
#include "simulated/mac/include/IOKit/IOKitKeys.h"
#include "simulated/mac/include/IOKit/IOKitLib.h"
#include "simulated/mac/include/IOKit/IOMessage.h"
#include "simulated/mac/include/IOKit/hidsystem/IOHIDEventSystemClient.h"
#include "simulated/mac/include/IOKit/hidsystem/IOHIDServiceClient.h"
#include "simulated/mac/include/IOKit/ps/IOPowerSources.h"
#include "simulated/mac/include/IOKit/pwr_mgt/IOPMLib.h"
#include "simulated/mac/include/IOKit/storage/IOBlockStorageDriver.h"
#include "simulated/mac/include/IOKit/storage/ata/ATASMARTLib.h"
#include "simulated/mac/include/IOKit/storage/nvme/NVMeSMARTLibExternal.h"
#include "simulated/mac/include/SystemConfiguration/SystemConfiguration.h"
#include "simulated/mac/include/libproc.h"
#include "simulated/mac/include/mach/mach.h"
#include "simulated/mac/include/mach/task_info.h"
#include "simulated/mac/include/sys/kern_control.h"
#include "simulated/mac/include/sys/mount.h"
#include "simulated/mac/include/sys/proc_info.h"
#include "simulated/mac/include/sys/resource.h"
#include "simulated/mac/include/sys/sys_domain.h"
#include "simulated/mac/include/sys/sysctl.h"
#include "simulated/mac/include/sys/timex.h"
