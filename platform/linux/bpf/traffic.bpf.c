/* For Linux 6.3 and later, which tells of every call that sends or receives. */
#define CLAIMED_BY_CALLS

#include "platform/linux/bpf/traffic_sockets.h"
