/* For Linux before 6.3, without tracepoints where a process sends and receives. */
#include "platform/linux/bpf/traffic_sockets.h"
