#include "HvDailyRollingFileAppender.h"
#include "HvTestSupport.h"

#include <boost/filesystem.hpp>
#include <gtest/gtest.h>

namespace {

using namespace Hv::Test;

// Reaches the packing pass and the name the parts are packed under.
class TestAppender : public Hv::DailyRollingFileAppender {
public:
    using Hv::DailyRollingFileAppender::DailyRollingFileAppender;
    using Hv::DailyRollingFileAppender::compresslogs;
    std::string scheduled() const { return scheduledFilename; }
};

TEST(DailyRollingFileAppender, FullDiskKeepsTheRolledTextUntilItIsPacked)
{
    TemporaryFolder mountPoint;
    const std::string folder = mountPoint.path().string();
    if (std::system(("mount -t tmpfs -o size=128k tmpfs " + folder + " 2>/dev/null").c_str()) != 0)
        GTEST_SKIP() << "cannot mount a small tmpfs here";

    log4cplus::SharedAppenderPtr holder(new TestAppender(folder + "/run", nullptr));
    auto& appender = static_cast<TestAppender&>(*holder);
    const std::string scheduled = appender.scheduled();
    // Random bytes do not shrink, so packing them needs room the disk no longer has.
    const std::string text = commandOutput("head -c 40960 /dev/urandom");
    writeFile(scheduled + ".1", text);
    EXPECT_NE(std::system(("cat /dev/zero > " + folder + "/filler 2>/dev/null").c_str()), 0);

    appender.compresslogs(false);
    EXPECT_EQ(readFile(scheduled + ".2"), text); // shifted by the rollover, kept
    EXPECT_EQ(readFile(scheduled + ".gz"), "") << "a broken member was left in the pack";

    boost::filesystem::remove(folder + "/filler");
    appender.compresslogs(false);
    EXPECT_EQ(commandOutput("gzip -dc " + scheduled + ".gz"), text);
    EXPECT_FALSE(boost::filesystem::exists(scheduled + ".3"));
    appender.close();
    EXPECT_EQ(std::system(("umount " + folder).c_str()), 0);
}

} // namespace
