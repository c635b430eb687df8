// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "simulated/mac/Declare.h"

#include <netinet/in.h>

#include <cstddef>
#include <cstdint>

#ifndef MERIDAL_BESIDE_REAL_HEADERS
struct proc_bsdinfo {
    std::uint32_t pbi_flags, pbi_status, pbi_xstatus, pbi_pid, pbi_ppid, pbi_uid;
    std::uint32_t beforeNames[6];
    char pbi_comm[16];
    char pbi_name[32];
    std::uint32_t pbi_nfiles;
    std::uint32_t beforeNice[4];
    std::int32_t pbi_nice;
    std::uint64_t pbi_start_tvsec, pbi_start_tvusec;
};
struct proc_taskinfo {
    std::uint64_t beforeCounts[6];
    std::int32_t counts[9];
    std::int32_t pti_threadnum;
    std::int32_t pti_numrunning;
    std::int32_t pti_priority;
};
struct proc_taskallinfo {
    proc_bsdinfo pbsd;
    proc_taskinfo ptinfo;
};
struct vnode_info_path {
    char vip_vi[152];
    char vip_path[1024];
};
struct proc_vnodepathinfo {
    vnode_info_path pvi_cdir;
    vnode_info_path pvi_rdir;
};
struct proc_fdinfo {
    std::int32_t proc_fd;
    std::uint32_t proc_fdtype;
};

struct in4in6_addr {
    std::uint32_t i46a_pad32[3];
    in_addr i46a_addr4;
};
union MacAddress {
    in4in6_addr ina_46;
    in6_addr ina_6;
};
struct in_sockinfo {
    int insi_fport, insi_lport;
    std::uint64_t insi_gencnt;
    std::uint32_t insi_flags, insi_flow;
    std::uint8_t insi_vflag, insi_ip_ttl;
    std::uint32_t rfu_1;
    MacAddress insi_faddr, insi_laddr;
    char rest[16];
};
struct tcp_sockinfo {
    in_sockinfo tcpsi_ini;
    char rest[40];
};
struct socket_info {
    char beforeType[152];
    int soi_type, soi_protocol, soi_family;
    char beforeKind[68];
    int soi_kind;
    std::uint32_t rfu_1;
    union {
        in_sockinfo pri_in;
        tcp_sockinfo pri_tcp;
        std::uint64_t others[66];
    } soi_proto;
};
struct socket_fdinfo {
    char pfi[24];
    socket_info psi;
};
#endif

MAC_CONSTANT(int, PROC_PIDLISTFDS, 1);
MAC_CONSTANT(int, PROC_PIDTASKALLINFO, 2);
MAC_CONSTANT(int, PROC_PIDTBSDINFO, 3);
MAC_CONSTANT(int, PROC_PIDVNODEPATHINFO, 9);
MAC_CONSTANT(int, PROC_PIDPATHINFO_SIZE, 1024);
MAC_CONSTANT(int, PROC_PIDPATHINFO_MAXSIZE, 4096);
MAC_CONSTANT(int, PROC_PIDFDSOCKETINFO, 3);
MAC_CONSTANT(int, PROX_FDTYPE_VNODE, 1);
MAC_CONSTANT(int, PROX_FDTYPE_SOCKET, 2);
MAC_CONSTANT(int, SOCKINFO_IN, 1);
MAC_CONSTANT(int, SOCKINFO_TCP, 2);
MAC_CONSTANT(int, SOCKINFO_UN, 3);
MAC_CONSTANT(int, INI_IPV4, 1);
MAC_CONSTANT(int, INI_IPV6, 2);

// What platform/macos/kernel/KernelLayouts.h does not hold.
static_assert(sizeof(proc_bsdinfo) == 136 && sizeof(proc_taskinfo) == 96);
static_assert(sizeof(proc_vnodepathinfo) == 2352 && offsetof(proc_vnodepathinfo, pvi_cdir.vip_path) == 152);
static_assert(sizeof(socket_fdinfo) == 792 && offsetof(socket_fdinfo, psi) == 24);
static_assert(offsetof(socket_info, soi_protocol) == 156 && offsetof(socket_info, soi_kind) == 232);
static_assert(offsetof(socket_info, soi_proto) == 240 && sizeof(in_sockinfo) == 80 && sizeof(tcp_sockinfo) == 120);
static_assert(offsetof(in_sockinfo, insi_lport) == 4 && offsetof(in_sockinfo, insi_vflag) == 24);
static_assert(offsetof(in_sockinfo, insi_faddr) == 32 && offsetof(in4in6_addr, i46a_addr4) == 12);
