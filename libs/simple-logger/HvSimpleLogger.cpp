#include "HvSimpleLogger.h"

#include "HvDailyRollingFileAppender.h"
#include "HvPlatform.h"
#include "HvTrace.h"
#include "HvVersion.h"

#include <boost/filesystem.hpp>
#include <boost/thread/thread.hpp>

#include <log4cplus/initializer.h>
#include <log4cplus/layout.h>
#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>

#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <functional>
#include <iostream>
#include <string>
#include <vector>

namespace Hv {

namespace {

std::atomic<bool> g_isInitialized{false};
std::atomic<bool> g_isEnabled{true};
// Initialized and some appender receives the lines (without a log file, maybe none does): one flag,
// so that the test of every line stays two loads.
std::atomic<bool> g_isWriting{false};
std::atomic<bool> g_hasLogFile{false};
boost::thread g_cleaningThread;

// Handles of cancelled cleaning threads, never released: the thread was joined behind boost's back,
// so neither boost's join nor its detach (run by a handle's destructor) may touch it again, and
// cancelling skipped boost's end-of-thread code that would release the thread's data.
std::vector<boost::thread>& cancelledThreads()
{
    static auto* threads = new std::vector<boost::thread>;
    return *threads;
}

// Between two passes of the old-log cleaning: one day.
constexpr long long CLEANING_INTERVAL_NANOSECONDS = 24LL * 60 * 60 * 1000000000;
constexpr const char* LOG_FILE_TIME_FORMAT = "%Y-%m-%d_%H%M%S_UTC";
constexpr const char* HEADER_TIME_FORMAT = "%Y-%m-%d %H:%M:%S %Z (%z)";
constexpr const log4cplus::tchar* LAYOUT =
    LOG4CPLUS_TEXT("[%-5p] %d{%Y-%m-%d %H:%M:%S,%Q} [%t] - %m%n\t^^^ from: %M,%n\t^^^ at: %l%n");

std::string formatTime(const std::tm& time, const char* format)
{
    char text[128] = {};
    const std::size_t size = std::strftime(text, sizeof text, format, &time);
    return std::string(text, size);
}

void cleanOldLogs(boost::filesystem::path directory)
{
    while (g_isInitialized) {
        // destroy() cancels this thread; let that happen only in the sleep, never while a pass
        // holds directory handles or the appender's lock (unwinding there would abort the process).
        int previousState = 0;
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &previousState);
        removeOldLogs(directory);
        pthread_setcancelstate(previousState, nullptr);
        boost::this_thread::sleep_for(boost::chrono::nanoseconds(CLEANING_INTERVAL_NANOSECONDS));
    }
}

} // namespace

void SimpleLogger::initialize(const std::string& name)
{
    if (g_isInitialized.exchange(true))
        return;

    log4cplus::initialize();
    log4cplus::Logger global = logger();

    global.setLogLevel(log4cplus::TRACE_LOG_LEVEL);
    const std::time_t now = std::time(nullptr);

    const boost::filesystem::path directory = logsDirectory() / name;
    std::tm utc{};
    gmtime_r(&now, &utc);
    const std::string fileName = (directory / formatTime(utc, LOG_FILE_TIME_FORMAT)).string() + "-" +
                                 PRODUCT_VERSION + "-" + std::to_string(getpid());
    // Without a log the program still does its work: it says why once, and logs nothing.
    try {
        createPrivateDirectories(directory);
    } catch (const boost::filesystem::filesystem_error& error) {
        std::cerr << name << ": running without a log: cannot create folder " << error.path1().string() << ": "
                  << error.code().message() << std::endl;
        return;
    }
    if (std::FILE* file = std::fopen(fileName.c_str(), "a")) {
        std::fclose(file);
    } else {
        std::cerr << name << ": running without a log: cannot create file " << fileName << ": "
                  << std::strerror(errno) << std::endl;
        return;
    }

    boost::thread cleaning(cleanOldLogs, directory);
    g_cleaningThread = std::move(cleaning);

    std::function<void()> writeHeader = [name] {
        const log4cplus::Logger global = logger();
        if (!isEnabled() || !global.isEnabledFor(log4cplus::INFO_LOG_LEVEL))
            return;
        const std::time_t current = std::time(nullptr);
        std::tm local{};
        localtime_r(&current, &local);
        log4cplus::tostringstream text;
        text << name.c_str() << ", version " << PRODUCT_VERSION << ", local time "
             << formatTime(local, HEADER_TIME_FORMAT).c_str();
        // An event of its own rather than HV_LOG_INFO: forcedLog refills this thread's event, which
        // is the very event being appended, and the logger's other appenders would then get the header
        // in its place.
        const log4cplus::spi::InternalLoggingEvent header(global.getName(), log4cplus::INFO_LOG_LEVEL, text.str(),
                                                          __FILE__, __LINE__, LOG4CPLUS_MACRO_FUNCTION());
        global.callAppenders(header);
    };

    log4cplus::SharedAppenderPtr appender(
        new DailyRollingFileAppender(LOG4CPLUS_STRING_TO_TSTRING(fileName), std::move(writeHeader)));
    appender->setLayout(std::make_unique<log4cplus::PatternLayout>(LAYOUT));
    addAppender(appender);
    g_hasLogFile = true;
}

void SimpleLogger::addAppender(log4cplus::SharedAppenderPtr appender)
{
    logger().addAppender(std::move(appender));
    g_isWriting = g_isInitialized.load();
}

bool SimpleLogger::hasLogFile()
{
    return g_hasLogFile;
}

log4cplus::Logger SimpleLogger::logger()
{
    // A logger is a handle; looking it up by name takes the hierarchy's lock, so do it once.
    static const log4cplus::Logger global = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("global"));
    return global;
}

bool SimpleLogger::isEnabled()
{
    return g_isWriting.load(std::memory_order_relaxed) && g_isEnabled.load(std::memory_order_relaxed);
}

void SimpleLogger::enable()
{
    g_isEnabled = true;
}

void SimpleLogger::disable()
{
    g_isEnabled = false;
}

void SimpleLogger::destroy()
{
    if (!g_isInitialized.exchange(false))
        return;
    g_isWriting = false;
    g_hasLogFile = false;
    // The thread sleeps a day between passes: cancel it rather than wait for the flag. Then wait
    // for it to end (at once in its sleep, or after a pass under way), so that it never logs into
    // log4cplus while the logger shuts down or the process exits.
    if (g_cleaningThread.joinable()) {
        const pthread_t handle = g_cleaningThread.native_handle();
        pthread_cancel(handle);
        pthread_join(handle, nullptr);
        cancelledThreads().push_back(std::move(g_cleaningThread));
    }
    logger();
    log4cplus::Logger::shutdown();
}

SimpleLogger::Suppressor::Suppressor()
{
    g_isEnabled = false;
}

SimpleLogger::Suppressor::~Suppressor()
{
    g_isEnabled = true;
}

} // namespace Hv
