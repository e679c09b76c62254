#include "HvLogCapture.h"

#include "HvSimpleLogger.h"

#include <log4cplus/spi/loggingevent.h>

#include <cstdlib>
#include <stdexcept>

namespace Hv::Test {

namespace {

class MemoryAppender : public log4cplus::Appender {
public:
    ~MemoryAppender() override { destructorImpl(); }
    void close() override { closed = true; }

    // The test's thread reads while others may log.
    std::mutex mutex;
    std::vector<LogLine> lines;

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override
    {
        std::lock_guard<std::mutex> lock(mutex);
        lines.push_back({event.getLogLevel(), LOG4CPLUS_TSTRING_TO_STRING(event.getMessage()),
                         LOG4CPLUS_TSTRING_TO_STRING(event.getFunction()),
                         LOG4CPLUS_TSTRING_TO_STRING(event.getFile()), event.getLine()});
    }
};

MemoryAppender& memory(const log4cplus::SharedAppenderPtr& appender)
{
    return static_cast<MemoryAppender&>(*appender);
}

} // namespace

LogCapture::LogCapture()
    : m_appender(new MemoryAppender)
{
    static const bool initialized = [] {
        if (std::getenv("HV_SOFTPHONE_LOG_DIR") == nullptr) {
            char folder[] = "/tmp/hv-test-logs-XXXXXX";
            if (mkdtemp(folder) == nullptr)
                throw std::runtime_error("cannot create a log folder for the test");
            setenv("HV_SOFTPHONE_LOG_DIR", folder, 1);
        }
        Hv::SimpleLogger::initialize("HalvoSoftphoneTest");
        // The cleaning thread may still be in its first pass when a short test exits: stop it
        // before log4cplus's statics are destroyed.
        std::atexit([] { Hv::SimpleLogger::destroy(); });
        return true;
    }();
    (void)initialized;
    Hv::SimpleLogger::enable();
    Hv::SimpleLogger::logger().addAppender(m_appender);
}

LogCapture::~LogCapture()
{
    Hv::SimpleLogger::logger().removeAppender(m_appender);
}

std::vector<LogLine> LogCapture::lines() const
{
    std::lock_guard<std::mutex> lock(memory(m_appender).mutex);
    return memory(m_appender).lines;
}

std::size_t LogCapture::count(int level, const std::string& text) const
{
    std::size_t found = 0;
    for (const LogLine& line : lines())
        found += line.level == level && line.message.find(text) != std::string::npos;
    return found;
}

std::vector<std::string> LogCapture::messages(int level) const
{
    std::vector<std::string> result;
    for (const LogLine& line : lines())
        if (line.level == level)
            result.push_back(line.message);
    return result;
}

void LogCapture::clear()
{
    std::lock_guard<std::mutex> lock(memory(m_appender).mutex);
    memory(m_appender).lines.clear();
}

} // namespace Hv::Test
