#pragma once

#include <log4cplus/appender.h>
#include <log4cplus/logger.h>

#include <string>

namespace Hv {

// The process-wide logging facade over the log4cplus logger "global".
class SimpleLogger {
public:
    // Creates the log folder (mode 0700) and file, the appender and the old-log cleaning thread.
    // Idempotent. When the folder or the file cannot be made, says why in one line on standard
    // error and leaves logging off: the program runs on without a log.
    static void initialize(const std::string& name);
    static log4cplus::Logger logger();
    // After initialize(): lines go to `appender` as well (and, without a log file, to it alone).
    static void addAppender(log4cplus::SharedAppenderPtr appender);
    // True when initialize() made the log file.
    static bool hasLogFile();
    // True only between initialize() and destroy() while not disabled and while some appender
    // receives the lines: callers build no text otherwise.
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
