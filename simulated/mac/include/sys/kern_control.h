// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "simulated/mac/Declare.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

#ifndef MERIDAL_BESIDE_REAL_HEADERS
struct ctl_info {
    std::uint32_t ctl_id;
    char ctl_name[96];
};
struct sockaddr_ctl {
    unsigned char sc_len, sc_family;
    std::uint16_t ss_sysaddr;
    std::uint32_t sc_id, sc_unit, sc_reserved[5];
};
#if !defined(__GLIBC__) || !__GLIBC_PREREQ(2, 38)
extern "C" std::size_t strlcpy(char* to, const char* from, std::size_t size);
#define MERIDAL_NEEDS_STRLCPY
#endif
#endif

MAC_CONSTANT(unsigned, CTLIOCGINFO, 0xC0644E03U);
static_assert(offsetof(ctl_info, ctl_name) == 4 && offsetof(sockaddr_ctl, sc_id) == 4);
