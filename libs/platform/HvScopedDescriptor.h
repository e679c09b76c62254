#pragma once

#include <unistd.h>

namespace Hv {

// Owns a file descriptor and closes it at the end of its scope, also when a caller throws.
// A negative descriptor (a failed open) is left alone.
struct ScopedDescriptor {
    explicit ScopedDescriptor(int descriptor) : fd(descriptor) {}
    ~ScopedDescriptor()
    {
        if (fd >= 0)
            ::close(fd);
    }
    ScopedDescriptor(const ScopedDescriptor&) = delete;
    ScopedDescriptor& operator=(const ScopedDescriptor&) = delete;
    int fd;
};

} // namespace Hv
