// Whole logger runs, each in a process of its own: the logger, its thread and its folder are
// process-wide.

#include "HvSimpleLogger.h"
#include "HvTestSupport.h"
#include "HvTrace.h"

#include <boost/filesystem.hpp>
#include <gtest/gtest.h>

#include <unistd.h>

#include <ctime>
#include <regex>
#include <sstream>

namespace {

using namespace Hv::Test;
namespace fs = boost::filesystem;

const std::string HEADER = ", version 130.264.0, local time ";
const std::string PREFIX = R"(\[(INFO |TRACE)\] \d{4}-\d\d-\d\d \d\d:\d\d:\d\d,\d{3}\.\d{3} \[[^\]]+\] - )";

struct Probe {
    static constexpr int TRACE_LINE = __LINE__ + 2;
    std::string label() const { return "x"; }
    void trace(int count, const std::string& name) { HV_TRACE(count, name, this->label(), (count > 2)); }
} g_probe; // global, so that its address is the same in the forked child

std::vector<fs::path> entries(const fs::path& folder)
{
    std::vector<fs::path> found;
    for (boost::system::error_code error; const auto& entry : fs::directory_iterator(folder, error))
        found.push_back(entry.path());
    return found;
}

std::size_t countLines(const std::vector<std::string>& lines, const std::string& text)
{
    std::size_t count = 0;
    for (const std::string& line : lines)
        count += line.find(text) != std::string::npos;
    return count;
}

// The index of the first line matching `pattern`, or the number of lines.
std::size_t findLine(const std::vector<std::string>& lines, const std::string& pattern)
{
    std::size_t at = 0;
    while (at < lines.size() && !std::regex_match(lines[at], std::regex(pattern)))
        ++at;
    return at;
}

std::size_t threadCount() { return entries("/proc/self/task").size(); }

void useLogFolder(const fs::path& folder) { setenv("HV_SOFTPHONE_LOG_DIR", folder.c_str(), 1); }

TEST(SimpleLogger, RunWritesHeaderAndTraceLinesIntoAFileOfItsOwn)
{
    TemporaryFolder logs;
    const std::time_t before = std::time(nullptr);
    const pid_t pid = inFreshProcess([&] {
        useLogFolder(logs.path());
        // Local time far from UTC: the file is named in UTC, the header shows local time.
        setenv("TZ", "XST-5:30", 1);
        tzset();
        int evaluated = 0;
        HV_LOG_INFO("before " << ++evaluated);
        const std::size_t threads = threadCount();
        Hv::SimpleLogger::initialize("Run");
        Hv::SimpleLogger::initialize("Run");
        Hv::SimpleLogger::initialize("Other");
        EXPECT_EQ(threadCount(), threads + 1);
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
        HV_TRACE_FREE();
    });
    const std::time_t after = std::time(nullptr);

    EXPECT_FALSE(fs::exists(logs.path() / "Other"));
    const std::vector<fs::path> files = entries(logs.path() / "Run");
    ASSERT_EQ(files.size(), 1u);
    bool named = false;
    for (std::time_t second = before; second <= after; ++second) {
        char stamp[32];
        std::strftime(stamp, sizeof stamp, "%Y-%m-%d_%H%M%S_UTC", std::gmtime(&second));
        named = named || files[0].filename() == std::string(stamp) + "-130.264.0-" + std::to_string(pid);
    }
    EXPECT_TRUE(named) << files[0];

    const std::vector<std::string> lines = splitLines(readFile(files[0]));
    ASSERT_GE(lines.size(), 9u);
    EXPECT_TRUE(std::regex_match(lines[0], std::regex(PREFIX + "Run" + HEADER + R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d XST \(\+0530\))")))
        << lines[0];
    EXPECT_TRUE(std::regex_match(lines[1], std::regex("\t\\^\\^\\^ from: .+,"))) << lines[1];
    EXPECT_TRUE(std::regex_match(lines[2], std::regex("\t\\^\\^\\^ at: .*HvSimpleLogger\\.cpp:\\d+"))) << lines[2];
    EXPECT_EQ(countLines(lines, HEADER), 1u);
    EXPECT_LT(findLine(lines, PREFIX + R"(\[\] -> \(\))"), lines.size());

    std::ostringstream address;
    address << static_cast<const void*>(&g_probe);
    const std::size_t at = findLine(lines, PREFIX + R"(\[this = )" + address.str() +
                                               R"(\] -> \(count = 3, name = tray, this->label\(\) = x, \(count > 2\) = 1\))");
    ASSERT_LT(at + 2, lines.size()) << "no trace line for " << address.str();
    EXPECT_TRUE(std::regex_match(lines[at + 1], std::regex("\t\\^\\^\\^ from: .*Probe::trace\\(int, .*string.*\\),")))
        << lines[at + 1];
    EXPECT_EQ(lines[at + 2], "\t^^^ at: " __FILE__ ":" + std::to_string(Probe::TRACE_LINE));
}

TEST(SimpleLogger, DestroyStopsTheThreadOnceAndLeavesOnlyRolledFiles)
{
    TemporaryFolder logs;
    inFreshProcess([&] {
        useLogFolder(logs.path());
        Hv::SimpleLogger::destroy();
        const std::size_t threads = threadCount();
        Hv::SimpleLogger::initialize("Run");
        HV_LOG_INFO("kept");
        Hv::SimpleLogger::destroy();
        Hv::SimpleLogger::destroy();
        EXPECT_TRUE(Hv::SimpleLogger::logger().getAllAppenders().empty());
        int evaluated = 0;
        HV_LOG_INFO("after destroy " << ++evaluated);
        EXPECT_EQ(evaluated, 0);
        for (int wait = 0; wait < 200 && threadCount() != threads; ++wait)
            usleep(10000);
        EXPECT_EQ(threadCount(), threads) << "the cleaning thread was not cancelled";
    });
    // A process that exits right after destroy() must not crash in the cancelled thread's own exit.
    // (A program of its own: a forked child cannot run log4cplus's exit code, its pool threads are gone.)
    const std::string run = "HV_SOFTPHONE_LOG_DIR=" + logs.path().string() + " " HV_LOGGER_RUN_HELPER;
    for (int attempt = 0; attempt < 10; ++attempt)
        EXPECT_EQ(std::system(run.c_str()), 0) << "attempt " << attempt;

    fs::path last;
    for (const fs::path& file : entries(logs.path() / "Run")) {
        EXPECT_FALSE(std::regex_match(file.filename().string(), std::regex(R"(.*-130\.264\.0-\d+)"))) << "active " << file;
        if (file.extension() != ".gz")
            last = file;
    }
    const std::vector<std::string> lines = splitLines(readFile(last));
    EXPECT_EQ(countLines(lines, HEADER), 1u);
    EXPECT_EQ(countLines(lines, "] - kept"), 1u);
}

TEST(SimpleLogger, LoggingGoesOnInFullOrReadOnlyFolder)
{
    TemporaryFolder mountPoint;
    const std::string folder = mountPoint.path().string();
    if (std::system(("mount -t tmpfs -o size=64k tmpfs " + folder + " 2>/dev/null").c_str()) != 0)
        GTEST_SKIP() << "cannot mount a small tmpfs here";
    inFreshProcess([&] {
        useLogFolder(mountPoint.path() / "full");
        Hv::SimpleLogger::initialize("Tray");
        for (int i = 0; i < 2000; ++i)
            HV_LOG_INFO(std::string(100, 'x') << ' ' << i);
        EXPECT_TRUE(Hv::SimpleLogger::isEnabled());
        Hv::SimpleLogger::destroy();
    });
    EXPECT_FALSE(entries(mountPoint.path() / "full" / "Tray").empty());
    EXPECT_LT(fs::space(mountPoint.path()).available, 8192u) << "the folder never filled up";

    fs::create_directories(mountPoint.path() / "read-only" / "Tray");
    ASSERT_EQ(std::system(("mount -o remount,ro " + folder).c_str()), 0);
    inFreshProcess([&] {
        useLogFolder(mountPoint.path() / "read-only");
        Hv::SimpleLogger::initialize("Tray");
        for (int i = 0; i < 10; ++i)
            HV_LOG_INFO("lost " << i);
        Hv::SimpleLogger::destroy();
    });
    EXPECT_TRUE(entries(mountPoint.path() / "read-only" / "Tray").empty());
    EXPECT_EQ(std::system(("umount " + folder).c_str()), 0);
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
                                " faketime -f '@2024-03-05 21:30:00 x1440' " HV_LOGGER_RUN_HELPER " --across-midnight";
    ASSERT_EQ(std::system(command.c_str()), 0);

    fs::path firstDay;
    for (const fs::path& file : entries(logs.path() / "DayChange")) {
        EXPECT_TRUE(file.extension() == ".2024-03-05" || file.extension() == ".2024-03-06" ||
                    file.extension() == ".gz") << "unexpected " << file;
        if (file.extension() == ".2024-03-05")
            firstDay = file;
    }
    ASSERT_FALSE(firstDay.empty());
    const fs::path secondDay = fs::path(firstDay).replace_extension(".2024-03-06");

    std::vector<std::string> packed;
    for (const std::string& member : gzipMembers(firstDay.string() + ".gz"))
        if (!member.empty())
            packed.push_back(member);
    ASSERT_EQ(packed.size(), 2u) << "one member per earlier part of the day";
    const std::vector<std::string> days[] = {splitLines(packed[0] + packed[1] + readFile(firstDay)),
                                             splitLines(readFile(secondDay))};
    ASSERT_FALSE(days[1].empty());
    EXPECT_EQ(days[0][0].find("[INFO ] 2024-03-05 21:30:"), 0u);
    EXPECT_EQ(days[1][0].find("[INFO ] 2024-03-06 00:00:"), 0u);
    for (const std::vector<std::string>& lines : days) {
        EXPECT_NE(lines[0].find(HEADER), std::string::npos) << lines[0];
        EXPECT_EQ(countLines(lines, HEADER), 1u);
    }

    // Every event once, in order, each on its own day's side of midnight.
    int expected = 0;
    for (int day = 0; day < 2; ++day) {
        std::smatch match;
        for (const std::string& line : days[day])
            if (std::regex_match(line, match, std::regex(R"(\[INFO \] (\S+) .* - event (\d+))"))) {
                EXPECT_EQ(match[1].str(), day == 0 ? "2024-03-05" : "2024-03-06") << line;
                EXPECT_EQ(std::stoi(match[2].str()), expected++) << line;
            }
    }
    EXPECT_GT(expected, 250);
}

} // namespace
