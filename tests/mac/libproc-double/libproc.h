#pragma once

// Test double of the macOS <libproc.h>: the three calls of the libproc walks, defined by the test
// that scripts their answers (HvMacLibprocTest.cpp).

#include <sys/proc_info.h>

extern "C" {
int proc_listpids(uint32_t type, uint32_t typeinfo, void* buffer, int buffersize);
int proc_pidinfo(int pid, int flavor, uint64_t arg, void* buffer, int buffersize);
int proc_pidfdinfo(int pid, int fd, int flavor, void* buffer, int buffersize);
}
