// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/host/Limitations.h"
#include "platform/host/MachineInfo.h"
#include "platform/host/ProcessInspection.h"
#include "platform/host/ProcessSource.h"

#include <memory>

namespace meridal {

/// The process table through libproc. A pass costs one proc_pidinfo a process; CPU, disk and wake-ups together one
/// proc_pid_rusage more, memory one task port and two task queries more. A pass over a table that has not grown allocates
/// nothing.
std::unique_ptr<ProcessSource> makeLibprocProcessSource(const SystemRelease& release, Limitations& limitations);

std::unique_ptr<ProcessInspection> makeLibprocInspection();

} // namespace meridal
