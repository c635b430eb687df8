// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "simulated/mac/Declare.h"

#include <cstddef>
#include <cstdint>

#ifndef MERIDAL_BESIDE_REAL_HEADERS
struct statfs {
    std::uint32_t f_bsize;
    std::int32_t f_iosize;
    std::uint64_t f_blocks, f_bfree, f_bavail, f_files, f_ffree;
    std::uint32_t f_fsid[2], f_owner, f_type, f_flags, f_fssubtype;
    char f_fstypename[16];
    char f_mntonname[1024];
    char f_mntfromname[1024];
    std::uint32_t ofLater[8];
};
#endif

MAC_CONSTANT(int, MNT_NOWAIT, 2);
MAC_CONSTANT(std::uint32_t, MNT_RDONLY, 1);
MAC_CONSTANT(std::uint32_t, MNT_DONTBROWSE, 0x100000);
static_assert(sizeof(struct statfs) == 2168 && offsetof(struct statfs, f_ffree) == 40);
static_assert(offsetof(struct statfs, f_flags) == 64 && offsetof(struct statfs, f_mntonname) == 88);

extern "C" {
int getfsstat(struct statfs* all, int size, int mode);
}
