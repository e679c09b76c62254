#pragma once

#include <log4cplus/logger.h>

#include <string>

namespace Hv {

// The process-wide logging facade over the log4cplus logger "global".
class SimpleLogger {
public:
    // Creates the log folder and file, the appender and the old-log cleaning thread. Idempotent.
    static void initialize(const std::string& name);
    static log4cplus::Logger logger();
    // True only between initialize() and destroy() while not disabled: callers build no text otherwise.
    static bool isEnabled();
    static void enable();
    static void disable();
    static void destroy();

    // Scope guard that disables logging; its end always re-enables it (it does not restore).
    class Suppressor {
    public:
        Suppressor();
        ~Suppressor();
        Suppressor(const Suppressor&) = delete;
        Suppressor& operator=(const Suppressor&) = delete;
    };
};

} // namespace Hv
