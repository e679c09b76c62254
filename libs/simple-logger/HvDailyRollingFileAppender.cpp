#include "HvDailyRollingFileAppender.h"

#include <log4cplus/helpers/fileinfo.h>
#include <log4cplus/helpers/stringhelper.h>
#include <log4cplus/spi/loggingevent.h>

#include <zlib.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace Hv {

namespace {

constexpr auto COMPRESSION_INTERVAL = std::chrono::seconds(3600);
constexpr std::size_t COPY_BLOCK_SIZE = 1048576;

// The size of a file, 0 when there is none, -1 when it cannot be told.
off_t fileSize(const std::string& path)
{
    struct stat info{};
    if (::stat(path.c_str(), &info) == 0)
        return info.st_size;
    return errno == ENOENT ? 0 : -1;
}

// Appends the whole file to the pack as one gzip member; false when a byte could not be read
// or written.
bool packMember(gzFile pack, std::FILE* file)
{
    auto block = std::make_unique<char[]>(COPY_BLOCK_SIZE);
    do {
        const std::size_t count = std::fread(block.get(), 1, COPY_BLOCK_SIZE, file);
        if (count > 0 && gzwrite(pack, block.get(), static_cast<unsigned>(count)) != static_cast<int>(count))
            return false;
        if (std::ferror(file))
            return false;
    } while (!std::feof(file));
    // Ends the member and hands every byte to the file, so a full disk shows here at the latest.
    return gzflush(pack, Z_FINISH) == Z_OK;
}

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
    // Where the members of this pass begin: a failed pass is cut off again, so that the pack
    // never ends in a broken member.
    const off_t packedBefore = fileSize(packName);
    gzFile pack = gzopen(packName.c_str(), "ab");
    if (pack == nullptr)
        return;

    // Oldest backup first, so the gzip members follow in time order. The last candidate is
    // "<scheduled>." (with no number): the scheduled file itself is never packed.
    std::vector<std::string> packed;
    off_t packedSize = packedBefore;
    bool failed = false;
    for (int i = maxBackupIndex; i >= 1 && !failed; --i) {
        const int n = i - 1;
        std::string candidate = LOG4CPLUS_TSTRING_TO_STRING(scheduled) + ".";
        if (n != 0)
            candidate += std::to_string(n);

        std::FILE* file = std::fopen(candidate.c_str(), "rt");
        if (file == nullptr)
            continue;
        failed = !packMember(pack, file);
        std::fclose(file);
        if (!failed) {
            packed.push_back(candidate);
            packedSize = fileSize(packName);
        }
    }
    // A backup is deleted only once its bytes are in the pack and the pack closed cleanly (a
    // full disk fails the writes); whatever stays is packed by the next pass.
    if (gzclose(pack) != Z_OK) {
        failed = true;
        packed.clear();
        packedSize = packedBefore;
    }
    if (failed && packedBefore >= 0) {
        // Nothing more to do if even this fails (a cast to void does not silence the fortified
        // declaration's unused-result warning).
        [[maybe_unused]] const int cut = ::truncate(packName.c_str(), packedSize);
    }
    for (const std::string& candidate : packed)
        std::remove(candidate.c_str());
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
