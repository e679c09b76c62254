#pragma once

// Test double of the macOS <sys/proc_info.h>: the flavours, constants, records and fields that the
// libproc walks use, nested as on macOS; the fields they never read are left out.

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

#define INI_IPV4 0x1
#define INI_IPV6 0x2

struct proc_taskallinfo {
    struct {
        uid_t pbi_uid;
        char pbi_name[32]; /* no terminator when the name fills it */
        uint32_t pbi_nfiles;
    } pbsd;
};

struct proc_fdinfo {
    int32_t proc_fd;
    uint32_t proc_fdtype;
};

struct in4in6_addr {
    uint32_t i46a_pad32[3];
    struct in_addr i46a_addr4;
};

struct in_sockinfo {
    int insi_fport; /* network byte order in the low 16 bits */
    int insi_lport;
    uint8_t insi_vflag; /* INI_IPV4 and/or INI_IPV6 */
    union {
        struct in4in6_addr ina_46;
        struct in6_addr ina_6;
    } insi_faddr, insi_laddr;
};

struct tcp_sockinfo {
    struct in_sockinfo tcpsi_ini;
    int tcpsi_state;
};

struct socket_fdinfo {
    struct {
        int soi_protocol;
        int soi_family;
        int soi_kind;
        union {
            struct in_sockinfo pri_in;
            struct tcp_sockinfo pri_tcp;
        } soi_proto;
    } psi;
};
