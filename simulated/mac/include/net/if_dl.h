// SPDX-License-Identifier: Apache-2.0
#pragma once

// Of the link layer's addresses what this system's sockaddr leaves room for: it has no length in front.

#ifndef MERIDAL_BESIDE_REAL_HEADERS
constexpr unsigned short AF_LINK = 18;

struct sockaddr_dl {
    unsigned short sdl_family;
    unsigned char sdl_nlen;
    unsigned char sdl_alen;
    char sdl_data[12];
};

inline const char* LLADDR(const sockaddr_dl* link) { return link->sdl_data + link->sdl_nlen; }
#endif
