#pragma once

#include <log4cplus/appender.h>

#include <mutex>
#include <string>
#include <vector>

namespace Hv::Test {

// One event as the logger "global" received it.
struct LogLine {
    int level;
    std::string message;
    std::string function;
    std::string file;
    int line;
};

// Records every event of the logger "global" in memory while it lives. The first capture of a
// process initializes the logger with a log folder of its own under the temporary directory.
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<LogLine> lines() const;
    // Events at `level` whose message contains `text`.
    std::size_t count(int level, const std::string& text) const;
    bool contains(int level, const std::string& text) const { return count(level, text) > 0; }
    // Messages at exactly `level`, in order.
    std::vector<std::string> messages(int level) const;
    void clear();

private:
    log4cplus::SharedAppenderPtr m_appender;
};

} // namespace Hv::Test
