// Whole logger runs, each in a process of its own (the logger, its thread and its folder are
// process-wide), and the appender's packing on a full disk.

#include "HvDailyRollingFileAppender.h"
#include "HvSimpleLogger.h"
#include "HvTestSupport.h"
#include "HvTrace.h"
#include "HvVersion.h"

#include <boost/filesystem.hpp>
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <algorithm>
#include <ctime>
#include <regex>
#include <sstream>

namespace {

using namespace Hv::Test;
namespace fs = boost::filesystem;

const std::string HEADER = std::string(", version ") + Hv::PRODUCT_VERSION + ", local time ",
                  STAMP = R"( \d{4}-\d\d-\d\d \d\d:\d\d:\d\d,\d{3}\.\d{3} \[[^\]]+\] - )";

struct Probe {
    static constexpr int TRACE_LINE = __LINE__ + 2;
    std::string label() const { return "x"; }
    void trace(int count, const std::string& name) { HV_TRACE(count, name, this->label(), (count > 2)); }
} g_probe; // global, so that its address is the same in the forked child

TEST(SimpleLogger, RunWritesHeaderAndTraceLinesIntoAFileOfItsOwn)
{
    TemporaryFolder root;
    const fs::path logs = root.path() / "logs";
    const std::time_t before = std::time(nullptr);
    const pid_t pid = inFreshProcess([&] {
        setenv("HV_SOFTPHONE_LOG_DIR", logs.c_str(), 1);
        ::umask(022);
        // Local time far from UTC: the file is named in UTC, the header shows local time.
        setenv("TZ", "XST-5:30", 1);
        tzset();
        int evaluated = 0;
        HV_LOG_INFO("before " << ++evaluated);
        Hv::SimpleLogger::initialize("Run");
        Hv::SimpleLogger::initialize("Other");
        EXPECT_EQ(Hv::SimpleLogger::logger().getAllAppenders().size(), 1u);
        {
            Hv::SimpleLogger::Suppressor outer;
            {
                Hv::SimpleLogger::Suppressor inner;
                HV_LOG_INFO("suppressed " << ++evaluated);
            }
            // Suppressors do not nest: the end of the inner one enabled logging again.
            EXPECT_TRUE(Hv::SimpleLogger::isEnabled());
        }
        Hv::SimpleLogger::disable();
        HV_LOG_INFO("disabled " << ++evaluated);
        { Hv::SimpleLogger::Suppressor suppressor; }
        // The end of a suppressor enables logging whatever it was before.
        EXPECT_TRUE(Hv::SimpleLogger::isEnabled());
        EXPECT_EQ(evaluated, 0) << "text built while logging was off";
        g_probe.trace(3, "tray");
    });
    const std::time_t after = std::time(nullptr);

    // The folders it made are the user's alone.
    EXPECT_EQ(fs::status(logs).permissions(), fs::owner_all);
    EXPECT_EQ(fs::status(logs / "Run").permissions(), fs::owner_all);
    const std::vector<fs::path> files(fs::directory_iterator(logs / "Run"), {});
    ASSERT_EQ(files.size(), 1u);
    const std::string name = files[0].filename().string();
    std::tm stamp{};
    const char* const rest = strptime(name.c_str(), (std::string("%Y-%m-%d_%H%M%S_UTC-") + Hv::PRODUCT_VERSION + "-").c_str(), &stamp);
    EXPECT_TRUE(rest && rest == std::to_string(pid) && timegm(&stamp) >= before && timegm(&stamp) <= after) << name;

    const std::vector<std::string> lines = splitLines(readFile(files[0]));
    ASSERT_EQ(lines.size(), 6u);
    EXPECT_TRUE(std::regex_match(lines[0], std::regex(R"(\[INFO \])" + STAMP + "Run" + HEADER + R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d XST \(\+0530\))")))
        << lines[0];
    std::ostringstream address;
    address << static_cast<const void*>(&g_probe);
    EXPECT_TRUE(std::regex_match(lines[3], std::regex(R"(\[TRACE\])" + STAMP + R"(\[this = )" + address.str() +
                                                       R"(\] -> \(count = 3, name = tray, this->label\(\) = x, \(count > 2\) = 1\))")))
        << lines[3];
    EXPECT_TRUE(std::regex_match(lines[4], std::regex("\t\\^\\^\\^ from: .*Probe::trace\\(int, .*string.*\\),"))) << lines[4];
    EXPECT_EQ(lines[5], "\t^^^ at: " __FILE__ ":" + std::to_string(Probe::TRACE_LINE));
}

// The run helper starts at 21:30 (faked, UTC) and logs once a faked half minute until 00:10: hourly
// packings at 22:30 and 23:30, then the day change.
TEST(SimpleLogger, DayChangeRollsPacksTheDayAndStartsTheNewFileWithHeader)
{
    if (!fs::exists("/usr/bin/faketime"))
        GTEST_SKIP() << "faketime is not installed";
#ifdef HV_ADDRESS_SANITIZER
    GTEST_SKIP() << "libfaketime's preload deadlocks in AddressSanitizer's start-up";
#endif
    TemporaryFolder logs;
    const std::string command = "TZ=UTC HV_SOFTPHONE_LOG_DIR=" + logs.path().string() +
                                " faketime -f '@2024-03-05 21:30:00 x1440' " HV_LOGGER_RUN_HELPER;
    ASSERT_EQ(std::system(command.c_str()), 0);

    fs::path firstDay;
    for (const fs::path& file : fs::directory_iterator(logs.path() / "DayChange")) {
        EXPECT_TRUE(file.extension() == ".2024-03-05" || file.extension() == ".2024-03-06" ||
                    file.extension() == ".gz") << "unexpected " << file;
        if (file.extension() == ".2024-03-05")
            firstDay = file;
    }
    ASSERT_FALSE(firstDay.empty());
    // The last hourly packing took everything before it.
    EXPECT_EQ(readFile(firstDay).find("[INFO ] 2024-03-05 23:3"), 0u);
    int expected = 0;
    for (const std::string day : {"2024-03-05", "2024-03-06"}) {
        const std::string rest = fs::path(firstDay).replace_extension("." + day).string();
        const std::vector<std::string> lines = splitLines(commandOutput("gzip -dc " + rest + ".gz 2>/dev/null") + readFile(rest));
        // The header once, at the day's first event; every event once, in order, on its own day's side of midnight.
        ASSERT_FALSE(lines.empty());
        EXPECT_TRUE(std::regex_search(lines[0], std::regex("^\\[INFO \\] " + day + (day == "2024-03-05" ? " 21:30:" : " 00:00:") +
                                                           ".* - DayChange" + HEADER))) << lines[0];
        EXPECT_EQ(std::count_if(lines.begin(), lines.end(), [](auto& line) { return line.find(HEADER) != std::string::npos; }), 1);
        std::smatch match;
        for (const std::string& line : lines)
            if (std::regex_match(line, match, std::regex(R"(\[INFO \] (\S+) .* - event (\d+))"))) {
                EXPECT_EQ(match[1].str(), day) << line;
                EXPECT_EQ(std::stoi(match[2].str()), expected++) << line;
            }
    }
    EXPECT_GT(expected, 250);
}

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

    TestAppender appender(folder + "/run", nullptr);
    const std::string scheduled = appender.scheduled();
    // Random bytes do not shrink, so packing them needs room the disk no longer has.
    const std::string text = commandOutput("head -c 40960 /dev/urandom");
    writeFile(scheduled + ".1", text);
    writeFile(scheduled + ".2", "older\n"); // an older part, to be packed before it
    // Room for a part of the pack only, so a broken member would be left if it were not cut off.
    EXPECT_EQ(std::system(("cat /dev/zero > " + folder + "/filler 2>/dev/null; truncate -s -16K " + folder + "/filler").c_str()), 0);

    appender.compresslogs(false);
    EXPECT_EQ(readFile(scheduled + ".2"), text); // shifted by the rollover, kept
    EXPECT_EQ(readFile(scheduled + ".gz"), "") << "a broken member was left in the pack";

    boost::filesystem::remove(folder + "/filler");
    appender.compresslogs(false);
    EXPECT_EQ(commandOutput("gzip -dc " + scheduled + ".gz"), "older\n" + text); // oldest first
    EXPECT_FALSE(boost::filesystem::exists(scheduled + ".3"));
    appender.close();
    EXPECT_EQ(std::system(("umount " + folder).c_str()), 0);
}

} // namespace
