#include "HvLogCapture.h"

#include "HvSimpleLogger.h"
#include "HvTestSupport.h"

#include <log4cplus/spi/loggingevent.h>

#include <boost/filesystem/operations.hpp>

#include <unistd.h>

#include <cstdlib>
#include <mutex>
#include <utility>

namespace Hv::Test {

namespace {

class MemoryAppender : public log4cplus::Appender {
public:
    ~MemoryAppender() override { destructorImpl(); }
    void close() override { closed = true; }

    // The test's thread reads while others may log.
    std::mutex mutex;
    std::vector<std::pair<int, std::string>> events;

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override
    {
        std::lock_guard<std::mutex> lock(mutex);
        events.emplace_back(event.getLogLevel(), LOG4CPLUS_TSTRING_TO_STRING(event.getMessage()));
    }
};

// The process that initialized the logger, and the log folder it made (empty, and so not
// removed, when the caller chose one through HV_SOFTPHONE_LOG_DIR).
pid_t logOwner = 0;
boost::filesystem::path logFolder;

} // namespace

void releaseLogFolder(bool stopLogger)
{
    if (logOwner != ::getpid())
        return;
    logOwner = 0;
    // The cleaning thread may still be in its first pass when a short test exits: stop it before
    // log4cplus's statics are destroyed, and before its folder goes.
    if (stopLogger)
        Hv::SimpleLogger::destroy();
    boost::system::error_code ignored;
    boost::filesystem::remove_all(logFolder, ignored);
}

LogCapture::LogCapture()
    : m_appender(new MemoryAppender)
{
    [[maybe_unused]] static const bool initialized = [] {
        if (std::getenv("HV_SOFTPHONE_LOG_DIR") == nullptr) {
            logFolder = makeTemporaryFolder("hv-test-logs");
            setenv("HV_SOFTPHONE_LOG_DIR", logFolder.c_str(), 1);
        }
        logOwner = ::getpid();
        Hv::SimpleLogger::initialize("HalvoSoftphoneTest");
        std::atexit([] { releaseLogFolder(); });
        return true;
    }();
    Hv::SimpleLogger::enable();
    Hv::SimpleLogger::logger().addAppender(m_appender);
}

LogCapture::~LogCapture()
{
    Hv::SimpleLogger::logger().removeAppender(m_appender);
}

std::size_t LogCapture::count(int level, const std::string& text) const
{
    std::size_t found = 0;
    for (const std::string& message : messages(level))
        found += message.find(text) != std::string::npos;
    return found;
}

std::vector<std::string> LogCapture::messages(int level) const
{
    auto& memory = static_cast<MemoryAppender&>(*m_appender);
    std::lock_guard<std::mutex> lock(memory.mutex);
    std::vector<std::string> result;
    for (const auto& [eventLevel, message] : memory.events)
        if (eventLevel == level)
            result.push_back(message);
    return result;
}

void LogCapture::clear()
{
    auto& memory = static_cast<MemoryAppender&>(*m_appender);
    std::lock_guard<std::mutex> lock(memory.mutex);
    memory.events.clear();
}

} // namespace Hv::Test
