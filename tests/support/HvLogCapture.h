#pragma once

#include <log4cplus/appender.h>

#include <string>
#include <vector>

namespace Hv::Test {

// Records every event of the logger "global" in memory while it lives. The first capture of a
// process initializes the logger with a log folder of its own under the temporary directory.
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    // Events at `level` whose message contains `text`.
    std::size_t count(int level, const std::string& text) const;
    // Messages at exactly `level`, in order.
    std::vector<std::string> messages(int level) const;
    void clear();

private:
    log4cplus::SharedAppenderPtr m_appender;
};

// Removes the logger's folder if this very process made it: at exit, after stopping the logger,
// and in forked children, which leave with _exit at once and so do not wait for the logger's
// cleaning thread (a forked child that joins a thread can hang in the sanitizer's allocator).
void releaseLogFolder(bool stopLogger = true);

} // namespace Hv::Test
