#pragma once

// <unistd.h>: the C library's own declarations, and getpeereid, which macOS declares here and
// glibc does not have at all.

#include_next <unistd.h>

extern "C" {

int getpeereid(int socket, uid_t* uid, gid_t* gid);

}
