#pragma once

// Test double of the macOS <sys/proc_info.h>: the flavours, constants and records that the libproc
// walks use. The fields they read sit at their macOS offsets; the rest is padding, so that every
// record has the size that the kernel checks the callers' buffer sizes against.

#include <netinet/in.h>
#include <sys/types.h>

#include <stdint.h>

#define PROC_ALL_PIDS 1

#define PROC_PIDLISTFDS 1
#define PROC_PIDTASKALLINFO 2
#define PROC_PIDFDSOCKETINFO 3

#define PROX_FDTYPE_SOCKET 2

#define SOCKINFO_IN 1
#define SOCKINFO_TCP 2

struct proc_taskallinfo {
    struct {
        uint32_t pad_1[5];
        uid_t pbi_uid; /* offset 20 */
        uint32_t pad_2[10];
        char pbi_name[32]; /* offset 64; no terminator when the name fills it */
        uint32_t pbi_nfiles; /* offset 96 */
        uint32_t pad_3[9];
    } pbsd;
    uint64_t ptinfo[12];
};

struct proc_fdinfo {
    int32_t proc_fd;
    uint32_t proc_fdtype;
};

struct in_sockinfo {
    int insi_fport; /* network byte order in the low 16 bits */
    int insi_lport;
    uint64_t pad_1[3];
    struct {
        struct {
            uint32_t i46a_pad32[3];
            struct in_addr i46a_addr4;
        } ina_46;
    } insi_faddr, insi_laddr; /* offsets 32 and 48 */
    uint32_t pad_2[4];
};

struct tcp_sockinfo {
    struct in_sockinfo tcpsi_ini;
    int tcpsi_state; /* offset 80 */
    uint32_t pad_[9];
};

struct socket_fdinfo {
    uint64_t pfi[3];
    struct {
        uint64_t pad_1[20];
        int soi_family; /* offset 160 */
        uint32_t pad_2[17];
        int soi_kind; /* offset 232 */
        uint32_t pad_3;
        union {
            struct tcp_sockinfo pri_tcp;
            uint64_t pad_[66];
        } soi_proto; /* offset 240 */
    } psi;
};

static_assert(sizeof(struct proc_taskallinfo) == 232, "proc_taskallinfo");
static_assert(sizeof(struct proc_fdinfo) == 8, "proc_fdinfo");
static_assert(sizeof(struct socket_fdinfo) == 792, "socket_fdinfo");
