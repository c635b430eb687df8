/* For Linux before 6.3, without tracepoints where a process sends and receives, and without programs that follow functions. */
#include "platform/linux/bpf/traffic_sockets.h"
