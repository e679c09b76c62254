// macOS rules of the platform functions: the per-user Library folders, the process owner and the
// console session (CoreGraphics).

#include "HvPlatform.h"
#include "HvPlatformDetail.h"

#include "HvTrace.h"

#include <CoreFoundation/CoreFoundation.h>
#include <CoreGraphics/CoreGraphics.h>

#include <optional>

namespace fs = boost::filesystem;

namespace Hv {

using PlatformDetail::environmentValue;

const fs::path& appDataDirectory()
{
    static const fs::path directory = PlatformDetail::homeDirectory() / "Library" / "Application Support";
    return directory;
}

const fs::path& downloadsDirectory()
{
    static const fs::path directory = [] {
        const std::optional<std::string> home = environmentValue("HOME");
        // Whether or not the folder exists.
        return home ? fs::path(*home) / "Downloads" : tempDirectory();
    }();
    return directory;
}

const std::string& autoUpdatePackName()
{
    static const std::string name = "HalvoSoftphone-Mac.zip";
    return name;
}

std::string processOwner(uint32_t pid)
{
    HV_TRACE_FREE(pid);
    return PlatformDetail::processOwnerFromTaskInfo(pid);
}

bool isSystemSessionActive()
{
    HV_TRACE_FREE();
    CFDictionaryRef session = CGSessionCopyCurrentDictionary();
    CFBooleanRef onConsole =
        static_cast<CFBooleanRef>(CFDictionaryGetValue(session, CFSTR("kCGSSessionOnConsoleKey")));
    const bool active = onConsole == kCFBooleanTrue;
    CFRelease(session);
    // The value is one of the constant booleans, for which a release is harmless; CFRelease
    // must not be given NULL when the key is missing.
    if (onConsole != nullptr)
        CFRelease(onConsole);
    return active;
}

} // namespace Hv
