#pragma once

// Test double of the macOS <sys/proc_info.h>: the flavours, constants and records that the
// libproc walks use. Used fields sit at their macOS offsets; the rest is reserved space, so that
// every record has the size the kernel checks for.

#include <netinet/in.h>
#include <sys/types.h>

#include <stddef.h>
#include <stdint.h>

#define PROC_ALL_PIDS 1

#define PROC_PIDLISTFDS 1
#define PROC_PIDTASKALLINFO 2
#define PROC_PIDFDSOCKETINFO 3

#define PROX_FDTYPE_SOCKET 2

#define SOCKINFO_IN 1
#define SOCKINFO_TCP 2

#define MAXCOMLEN 16

struct proc_bsdinfo {
    uint32_t pbi_flags;
    uint32_t pbi_status;
    uint32_t pbi_xstatus;
    uint32_t pbi_pid;
    uint32_t pbi_ppid;
    uid_t pbi_uid;
    gid_t pbi_gid;
    uid_t pbi_ruid;
    gid_t pbi_rgid;
    uid_t pbi_svuid;
    gid_t pbi_svgid;
    uint32_t rfu_1;
    char pbi_comm[MAXCOMLEN];
    char pbi_name[2 * MAXCOMLEN];
    uint32_t pbi_nfiles;
    uint32_t pbi_pgid;
    uint32_t pbi_pjobc;
    uint32_t e_tdev;
    uint32_t e_tpgid;
    int32_t pbi_nice;
    uint64_t pbi_start_tvsec;
    uint64_t pbi_start_tvusec;
};

struct proc_taskinfo {
    uint64_t pti_reserved_[12]; /* sizes, times and counters; not used here */
};

struct proc_taskallinfo {
    struct proc_bsdinfo pbsd;
    struct proc_taskinfo ptinfo;
};

struct proc_fdinfo {
    int32_t proc_fd;
    uint32_t proc_fdtype;
};

struct proc_fileinfo {
    uint32_t fi_openflags;
    uint32_t fi_status;
    off_t fi_offset;
    int32_t fi_type;
    uint32_t fi_guardflags;
};

struct in4in6_addr {
    uint32_t i46a_pad32[3];
    struct in_addr i46a_addr4;
};

struct in_sockinfo {
    int insi_fport; /* network byte order in the low 16 bits */
    int insi_lport;
    uint64_t insi_gencnt;
    uint32_t insi_flags;
    uint32_t insi_flow;
    uint8_t insi_vflag;
    uint8_t insi_ip_ttl;
    uint32_t rfu_1;
    union {
        struct in4in6_addr ina_46;
        struct in6_addr ina_6;
    } insi_faddr;
    union {
        struct in4in6_addr ina_46;
        struct in6_addr ina_6;
    } insi_laddr;
    struct {
        unsigned char in4_tos;
    } insi_v4;
    struct {
        uint8_t in6_hlim;
        int in6_cksum;
        unsigned short in6_ifindex;
        short in6_hops;
    } insi_v6;
};

struct tcp_sockinfo {
    struct in_sockinfo tcpsi_ini;
    int tcpsi_state;
    int tcpsi_timer[4];
    int tcpsi_mss;
    uint32_t tcpsi_flags;
    uint32_t rfu_1;
    uint64_t tcpsi_tp;
};

struct socket_info {
    unsigned char soi_stat_reserved_[136]; /* struct vinfo_stat; not used here */
    uint64_t soi_so;
    uint64_t soi_pcb;
    int soi_type;
    int soi_protocol;
    int soi_family;
    short soi_options;
    short soi_linger;
    short soi_state;
    short soi_qlen;
    short soi_incqlen;
    short soi_qlimit;
    short soi_timeo;
    unsigned short soi_error;
    uint32_t soi_oobmark;
    unsigned char soi_buffers_reserved_[48]; /* receive and send struct sockbuf_info */
    int soi_kind;
    uint32_t rfu_1;
    union {
        struct in_sockinfo pri_in;
        struct tcp_sockinfo pri_tcp;
        uint64_t pri_reserved_[66]; /* the largest member, struct un_sockinfo */
    } soi_proto;
};

struct socket_fdinfo {
    struct proc_fileinfo pfi;
    struct socket_info psi;
};

// The sizes the kernel compares the callers' buffer sizes with.
static_assert(sizeof(struct proc_bsdinfo) == 136, "proc_bsdinfo");
static_assert(sizeof(struct proc_taskallinfo) == 232, "proc_taskallinfo");
static_assert(sizeof(struct proc_fdinfo) == 8, "proc_fdinfo");
static_assert(sizeof(struct in_sockinfo) == 80, "in_sockinfo");
static_assert(sizeof(struct tcp_sockinfo) == 120, "tcp_sockinfo");
static_assert(sizeof(struct socket_fdinfo) == 792, "socket_fdinfo");
static_assert(offsetof(struct proc_bsdinfo, pbi_uid) == 20, "pbi_uid");
static_assert(offsetof(struct proc_bsdinfo, pbi_name) == 64, "pbi_name");
static_assert(offsetof(struct proc_bsdinfo, pbi_nfiles) == 96, "pbi_nfiles");
static_assert(offsetof(struct socket_info, soi_family) == 160, "soi_family");
static_assert(offsetof(struct socket_info, soi_kind) == 232, "soi_kind");
static_assert(offsetof(struct socket_info, soi_proto) == 240, "soi_proto");
static_assert(offsetof(struct in_sockinfo, insi_faddr) == 32, "insi_faddr");
static_assert(offsetof(struct in_sockinfo, insi_laddr) == 48, "insi_laddr");
static_assert(offsetof(struct tcp_sockinfo, tcpsi_state) == 80, "tcpsi_state");
