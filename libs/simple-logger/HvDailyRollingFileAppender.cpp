#include "HvDailyRollingFileAppender.h"

#include <log4cplus/helpers/fileinfo.h>
#include <log4cplus/helpers/stringhelper.h>
#include <log4cplus/spi/loggingevent.h>

#include <zlib.h>

#include <chrono>
#include <cstdio>
#include <memory>

namespace Hv {

namespace {
constexpr auto COMPRESSION_INTERVAL = std::chrono::seconds(3600);
constexpr std::size_t COPY_BLOCK_SIZE = 1048576;
} // namespace

DailyRollingFileAppender::DailyRollingFileAppender(const log4cplus::tstring& fileName,
                                                   std::function<void()> onNewFile)
    : log4cplus::DailyRollingFileAppender(fileName, log4cplus::DAILY, true, 10, false, true)
    , nextCompressionTime(getNextCompressionTime())
    , writeHeader(true)
    , onNewFile(std::move(onNewFile))
{
}

DailyRollingFileAppender::~DailyRollingFileAppender() = default;

log4cplus::helpers::Time DailyRollingFileAppender::getNextCompressionTime()
{
    return log4cplus::helpers::now() + COMPRESSION_INTERVAL;
}

void DailyRollingFileAppender::append(const log4cplus::spi::InternalLoggingEvent& event)
{
    if (event.getTimestamp() >= nextCompressionTime || event.getTimestamp() >= nextRolloverTime)
        compresslogs(false);

    // Rolling happens only through compresslogs, so the base's own date test is bypassed.
    if (!writeHeader) {
        log4cplus::FileAppenderBase::append(event);
        return;
    }

    // Cleared first: the callback logs the header through this appender again.
    writeHeader = false;
    // The callback's logging reuses this thread's event buffers, so keep a copy.
    const log4cplus::spi::InternalLoggingEvent copy(event);
    if (onNewFile)
        onNewFile();
    log4cplus::FileAppenderBase::append(copy);
}

void DailyRollingFileAppender::compresslogs(bool closing)
{
    nextCompressionTime = getNextCompressionTime();

    // rollover() recomputes the scheduled name from the current time; the parts to pack
    // belong to the name it had before.
    const log4cplus::tstring scheduled = scheduledFilename;
    rollover(!closing);
    writeHeader = scheduledFilename != scheduled;

    const std::string packName = LOG4CPLUS_TSTRING_TO_STRING(scheduled) + ".gz";
    gzFile pack = gzopen(packName.c_str(), "ab");
    if (pack == nullptr)
        return;

    // Oldest backup first, so the gzip members follow in time order. The last candidate is
    // "<scheduled>." (with no number): the scheduled file itself is never packed.
    for (int i = maxBackupIndex; i >= 1; --i) {
        const int n = i - 1;
        std::string candidate = LOG4CPLUS_TSTRING_TO_STRING(scheduled) + ".";
        if (n != 0)
            candidate += std::to_string(n);

        std::FILE* file = std::fopen(candidate.c_str(), "rt");
        if (file == nullptr)
            continue;
        auto block = std::make_unique<char[]>(COPY_BLOCK_SIZE);
        do {
            const std::size_t count = std::fread(block.get(), 1, COPY_BLOCK_SIZE, file);
            if (count > 0)
                gzwrite(pack, block.get(), static_cast<unsigned>(count));
            if (std::ferror(file))
                break;
        } while (!std::feof(file));
        block.reset();
        std::fclose(file);
        // End the gzip member: each backup becomes a member of its own, in time order.
        gzflush(pack, Z_FINISH);
        std::remove(candidate.c_str());
    }
    gzclose(pack);
}

void DailyRollingFileAppender::close()
{
    if (closed)
        return;
    compresslogs(true);
    log4cplus::FileAppenderBase::close();
    // The rollover left a fresh, empty active file behind.
    std::remove(LOG4CPLUS_TSTRING_TO_STRING(filename).c_str());
}

} // namespace Hv
