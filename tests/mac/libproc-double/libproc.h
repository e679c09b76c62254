#pragma once

// Test double of the macOS <libproc.h>: the three calls of the libproc walks, answered from the
// script of HvLibprocScript.h.

#include <sys/proc_info.h>

#ifdef __cplusplus
extern "C" {
#endif

int proc_listpids(uint32_t type, uint32_t typeinfo, void* buffer, int buffersize);
int proc_pidinfo(int pid, int flavor, uint64_t arg, void* buffer, int buffersize);
int proc_pidfdinfo(int pid, int fd, int flavor, void* buffer, int buffersize);

#ifdef __cplusplus
}
#endif
