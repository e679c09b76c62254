#pragma once

#include <log4cplus/fileappender.h>
#include <log4cplus/helpers/timehelper.h>

#include <functional>

namespace Hv {

// log4cplus's daily rolling appender that packs rolled backups into "<scheduled name>.gz"
// (at most hourly, on a day change and on close) and writes a header line at the top of
// every new day's file through a callback.
class DailyRollingFileAppender : public log4cplus::DailyRollingFileAppender {
public:
    DailyRollingFileAppender(const log4cplus::tstring& fileName, std::function<void()> onNewFile);
    ~DailyRollingFileAppender() override;

    void close() override;

    static log4cplus::helpers::Time getNextCompressionTime();

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override;
    void compresslogs(bool closing);

private:
    log4cplus::helpers::Time nextCompressionTime;
    bool writeHeader;
    std::function<void()> onNewFile;
};

} // namespace Hv
