// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "simulated/mac/Declare.h"

#ifndef MERIDAL_BESIDE_REAL_HEADERS
// include_next is no part of the language, and said to be none outside of system headers.
#pragma GCC system_header
#include_next <sys/resource.h>

#include <cstdint>

using rusage_info_t = void*;

struct rusage_info_v2 {
    std::uint8_t ri_uuid[16];
    std::uint64_t ri_user_time, ri_system_time, ri_pkg_idle_wkups, ri_interrupt_wkups, ri_pageins, ri_wired_size;
    std::uint64_t ri_resident_size, ri_phys_footprint;
    std::uint64_t beforeDisk[8];
    std::uint64_t ri_diskio_bytesread, ri_diskio_byteswritten;
};
struct rusage_info_v3 {
    std::uint8_t ri_uuid[16];
    std::uint64_t ri_user_time, ri_system_time, ri_pkg_idle_wkups, ri_interrupt_wkups, ri_pageins, ri_wired_size;
    std::uint64_t ri_resident_size, ri_phys_footprint;
    std::uint64_t beforeDisk[8];
    std::uint64_t ri_diskio_bytesread, ri_diskio_byteswritten;
    std::uint64_t ofLater[9];
};
#endif

MAC_CONSTANT(int, RUSAGE_INFO_V2, 2);
MAC_CONSTANT(int, RUSAGE_INFO_V3, 3);
