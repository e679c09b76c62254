#include "HvDailyRollingFileAppender.h"
#include "HvTestSupport.h"

#include <boost/filesystem.hpp>
#include <gtest/gtest.h>

#include <log4cplus/layout.h>
#include <log4cplus/spi/loggingevent.h>

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <random>

namespace {

using namespace Hv::Test;
namespace fs = boost::filesystem;

// Reaches the packing pass and the base's schedule.
class TestAppender : public Hv::DailyRollingFileAppender {
public:
    TestAppender(const std::string& file, std::function<void()> onNewFile = nullptr)
        : Hv::DailyRollingFileAppender(file, std::move(onNewFile))
    {
        setLayout(std::make_unique<log4cplus::PatternLayout>(LOG4CPLUS_TEXT("%m%n")));
        // Keeps a run near midnight from rolling on its own.
        nextRolloverTime = log4cplus::helpers::now() + std::chrono::hours(48);
    }
    using Hv::DailyRollingFileAppender::compresslogs;
    std::string scheduled() const { return scheduledFilename; }
};

log4cplus::spi::InternalLoggingEvent event(const std::string& text,
                                           log4cplus::helpers::Time time = log4cplus::helpers::now())
{
    return {"test", log4cplus::INFO_LOG_LEVEL, {}, {}, text, "thread", "thread", time, "file", 1, {}};
}

std::string joined(const std::vector<std::string>& parts)
{
    std::string text;
    for (const std::string& part : parts)
        text += part;
    return text;
}

TEST(DailyRollingFileAppender, HeaderOncePacksBackupsOldestFirstAndCloseLeavesNoActiveFile)
{
    TemporaryFolder folder;
    const std::string file = (folder.path() / "run").string();
    int headers = 0;
    TestAppender* appender = nullptr;
    log4cplus::SharedAppenderPtr holder(appender = new TestAppender(file, [&] {
        ++headers;
        appender->doAppend(event("header"));
    }));
    appender->doAppend(event("first"));
    appender->doAppend(event("second"));
    EXPECT_EQ(readFile(file), "header\nfirst\nsecond\n");

    const std::string scheduled = appender->scheduled();
    for (const std::string n : {"1", "2", "3"})
        writeFile(scheduled + "." + n, n + "\n");
    appender->compresslogs(false);
    EXPECT_EQ(gzipMembers(scheduled + ".gz"), (std::vector<std::string>{"3\n", "2\n", "1\n"}));
    for (const char* backup : {".1", ".2", ".3", ".4"})
        EXPECT_FALSE(fs::exists(scheduled + backup)) << backup;
    EXPECT_EQ(readFile(scheduled), "header\nfirst\nsecond\n");
    EXPECT_EQ(readFile(file), "");

    // After a pause of over an hour the next event packs once (one more member); the one after does not.
    appender->doAppend(event("late", log4cplus::helpers::now() + std::chrono::seconds(3601)));
    appender->doAppend(event("again"));
    EXPECT_EQ(gzipMembers(scheduled + ".gz"), (std::vector<std::string>{"3\n", "2\n", "1\n", "header\nfirst\nsecond\n"}));
    EXPECT_EQ(readFile(file), "late\nagain\n");
    EXPECT_EQ(headers, 1);
    EXPECT_EQ(appender->scheduled(), scheduled);

    appender->close();
    appender->close();
    EXPECT_FALSE(fs::exists(file));
    EXPECT_EQ(readFile(scheduled), "late\nagain\n");
    EXPECT_EQ(joined(gzipMembers(scheduled + ".gz")), "3\n2\n1\nheader\nfirst\nsecond\n");
}

TEST(DailyRollingFileAppender, FullDiskKeepsTheRolledTextUntilItIsPacked)
{
    TemporaryFolder mountPoint;
    const std::string folder = mountPoint.path().string();
    if (std::system(("mount -t tmpfs -o size=128k tmpfs " + folder + " 2>/dev/null").c_str()) != 0)
        GTEST_SKIP() << "cannot mount a small tmpfs here";
    struct Unmount {
        std::string folder;
        ~Unmount() { (void)std::system(("umount " + folder).c_str()); }
    } unmount{folder};

    log4cplus::SharedAppenderPtr holder(new TestAppender(folder + "/run"));
    auto& appender = static_cast<TestAppender&>(*holder);
    const std::string scheduled = appender.scheduled();
    // Random bytes do not shrink, so packing them needs room the disk no longer has.
    std::string text(40 * 1024, '\0');
    std::mt19937 random(7);
    for (char& c : text)
        c = static_cast<char>(random());
    writeFile(scheduled + ".1", text);
    const int fd = ::open((folder + "/filler").c_str(), O_WRONLY | O_CREAT, 0600);
    const std::string block(4096, 'f');
    while (::write(fd, block.data(), block.size()) > 0) {
    }
    ::close(fd);

    appender.compresslogs(false);
    EXPECT_EQ(readFile(scheduled + ".2"), text); // shifted by the rollover, kept
    EXPECT_TRUE(gzipMembers(scheduled + ".gz").empty()) << "a broken member was left in the pack";

    fs::remove(folder + "/filler");
    appender.compresslogs(false);
    EXPECT_EQ(joined(gzipMembers(scheduled + ".gz")), text);
    EXPECT_FALSE(fs::exists(scheduled + ".3"));
    appender.close();
}

} // namespace
