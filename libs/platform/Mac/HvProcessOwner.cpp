// The libproc half of processOwner(), in plain C++ so that it builds without the Apple frameworks.

#include "HvPlatformDetail.h"

#include <libproc.h>
#include <sys/proc_info.h>

namespace Hv::PlatformDetail {

std::string processOwnerFromTaskInfo(uint32_t pid)
{
    struct proc_taskallinfo info = {};
    const int size = proc_pidinfo(static_cast<int>(pid), PROC_PIDTASKALLINFO, 0, &info,
                                  static_cast<int>(sizeof(info)));
    return ownerFromTaskInfo(pid, size, static_cast<int>(sizeof(info)), info.pbsd.pbi_uid);
}

} // namespace Hv::PlatformDetail
