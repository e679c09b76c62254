#include "HvDailyRollingFileAppender.h"
#include "HvTestSupport.h"

#include <boost/filesystem.hpp>
#include <gtest/gtest.h>

#include <fstream>

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
    using Hv::DailyRollingFileAppender::DailyRollingFileAppender;
    using Hv::DailyRollingFileAppender::compresslogs;
    std::string scheduled() const { return LOG4CPLUS_TSTRING_TO_STRING(scheduledFilename); }
    // Keeps a test run near midnight from rolling on its own.
    void postponeDayChange() { nextRolloverTime = log4cplus::helpers::now() + std::chrono::hours(48); }
};

log4cplus::spi::InternalLoggingEvent event(const std::string& text,
                                           log4cplus::helpers::Time time = log4cplus::helpers::now())
{
    return {LOG4CPLUS_TEXT("test"), log4cplus::INFO_LOG_LEVEL, {}, {}, LOG4CPLUS_STRING_TO_TSTRING(text),
            LOG4CPLUS_TEXT("thread"), LOG4CPLUS_TEXT("thread"), time, "file", 1, {}};
}

std::string joined(const std::vector<std::string>& parts)
{
    std::string text;
    for (const std::string& part : parts)
        text += part;
    return text;
}

void write(const std::string& path, const std::string& text) { std::ofstream(path) << text; }

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
    appender->setLayout(std::make_unique<log4cplus::PatternLayout>(LOG4CPLUS_TEXT("%m%n")));
    appender->postponeDayChange();
    appender->doAppend(event("first"));
    appender->doAppend(event("second"));
    EXPECT_EQ(headers, 1);
    EXPECT_EQ(readFile(file), "header\nfirst\nsecond\n");

    const std::string scheduled = appender->scheduled();
    ASSERT_EQ(scheduled.rfind(file + ".", 0), 0u) << scheduled;
    write(scheduled + ".1", "one\n");
    write(scheduled + ".2", "two\n");
    write(scheduled + ".3", "three\n");
    appender->compresslogs(false);
    EXPECT_EQ(gzipMembers(scheduled + ".gz"), (std::vector<std::string>{"three\n", "two\n", "one\n"}));
    for (const char* backup : {".1", ".2", ".3", ".4"})
        EXPECT_FALSE(fs::exists(scheduled + backup)) << backup;
    EXPECT_EQ(readFile(scheduled), "header\nfirst\nsecond\n");
    EXPECT_EQ(readFile(file), "");
    EXPECT_EQ(appender->scheduled(), scheduled);

    // After a pause of over an hour the next event packs once (one more member); the one after does not.
    appender->doAppend(event("late", log4cplus::helpers::now() + std::chrono::seconds(3601)));
    appender->doAppend(event("again"));
    const std::vector<std::string> members = gzipMembers(scheduled + ".gz");
    ASSERT_EQ(members.size(), 4u);
    EXPECT_EQ(members[3], "header\nfirst\nsecond\n");
    EXPECT_EQ(readFile(file), "late\nagain\n");
    EXPECT_EQ(headers, 1);

    appender->close();
    appender->close();
    EXPECT_FALSE(fs::exists(file));
    EXPECT_EQ(readFile(scheduled), "late\nagain\n");
    EXPECT_EQ(joined(gzipMembers(scheduled + ".gz")), "three\ntwo\none\nheader\nfirst\nsecond\n");
}

TEST(DailyRollingFileAppender, UnopenablePackKeepsBackupsForTheNextPass)
{
    TemporaryFolder folder;
    const std::string file = (folder.path() / "run").string();
    log4cplus::SharedAppenderPtr holder(new TestAppender(file, nullptr));
    auto& appender = static_cast<TestAppender&>(*holder);
    const std::string scheduled = appender.scheduled();
    fs::create_directory(scheduled + ".gz");
    write(scheduled + ".1", "one\n");
    appender.compresslogs(false);
    EXPECT_EQ(readFile(scheduled + ".2"), "one\n"); // shifted by the rollover, not packed
    fs::remove(scheduled + ".gz");
    appender.compresslogs(false);
    EXPECT_EQ(joined(gzipMembers(scheduled + ".gz")), "one\n");
    EXPECT_FALSE(fs::exists(scheduled + ".3"));
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

    const std::string file = folder + "/run";
    log4cplus::SharedAppenderPtr holder(new TestAppender(file, nullptr));
    auto& appender = static_cast<TestAppender&>(*holder);
    appender.postponeDayChange();
    const std::string scheduled = appender.scheduled();
    // Random bytes do not shrink, so packing them needs room the disk no longer has.
    std::string text(40 * 1024, '\0');
    std::mt19937 random(7);
    for (char& c : text)
        c = static_cast<char>(random());
    write(scheduled + ".1", text);
    const std::string filler = folder + "/filler";
    const int fd = ::open(filler.c_str(), O_WRONLY | O_CREAT, 0600);
    const std::string block(4096, 'f');
    while (::write(fd, block.data(), block.size()) > 0) {
    }
    ::close(fd);

    appender.compresslogs(false);
    EXPECT_EQ(readFile(scheduled + ".2"), text); // shifted by the rollover, kept
    EXPECT_TRUE(gzipMembers(scheduled + ".gz").empty()) << "a broken member was left in the pack";

    fs::remove(filler);
    appender.compresslogs(false);
    EXPECT_EQ(joined(gzipMembers(scheduled + ".gz")), text);
    EXPECT_FALSE(fs::exists(scheduled + ".3"));
    appender.close();
}

} // namespace
