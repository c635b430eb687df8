/* SPDX-License-Identifier: GPL-2.0-only OR Apache-2.0 */
/* For Linux before 6.3, without tracepoints where a process sends and receives, and without programs that follow functions. */
#include "platform/linux/bpf/traffic_sockets.h"
