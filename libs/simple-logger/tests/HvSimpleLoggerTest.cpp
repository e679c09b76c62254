#include "HvTestSupport.h"

#include <boost/filesystem.hpp>
#include <gtest/gtest.h>

#include <fstream>
#include "HvSimpleLogger.h"
#include "HvTrace.h"

#include <log4cplus/logger.h>

#include <ctime>
#include <regex>
#include <sstream>

#if defined(__SANITIZE_ADDRESS__)
#define HV_ADDRESS_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define HV_ADDRESS_SANITIZER 1
#endif
#endif

namespace {

using namespace Hv::Test;
namespace fs = boost::filesystem;

const std::string DATE = R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d,\d{3}\.\d{3})";
const std::string HEADER = ", version 130.264.0, local time ";

struct Probe {
    static constexpr int TRACE_LINE = __LINE__ + 3;
    void trace(int count, const std::string& name)
    {
        HV_TRACE(count, name);
    }
} g_probe; // global, so its address is the same in the forked child

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

std::size_t threadCount() { return entries("/proc/self/task").size(); }

void useLogFolder(const fs::path& folder) { setenv("HV_SOFTPHONE_LOG_DIR", folder.c_str(), 1); }

TEST(SimpleLogger, RunWritesOneHeaderFirstIntoFileNamedByUtcTimeVersionAndPid)
{
    TemporaryFolder logs;
    const std::time_t before = std::time(nullptr);
    const pid_t pid = inFreshProcess([&] {
        useLogFolder(logs.path());
        Hv::SimpleLogger::initialize("HvLoggerTest");
        HV_LOG_DEBUG("first event");
        g_probe.trace(3, "tray");
    });
    const std::time_t after = std::time(nullptr);

    const std::vector<fs::path> files = entries(logs.path() / "HvLoggerTest");
    ASSERT_EQ(files.size(), 1u);
    const std::string name = files[0].filename().string();
    bool named = false;
    for (std::time_t second = before; second <= after; ++second) {
        char stamp[32];
        std::strftime(stamp, sizeof stamp, "%Y-%m-%d_%H%M%S_UTC", std::gmtime(&second));
        named = named || name == std::string(stamp) + "-130.264.0-" + std::to_string(pid);
    }
    EXPECT_TRUE(named) << name;

    const std::vector<std::string> lines = splitLines(readFile(files[0]));
    ASSERT_GE(lines.size(), 9u);
    EXPECT_TRUE(std::regex_match(lines[0], std::regex(R"(\[INFO \] )" + DATE + R"( \[[^\]]+\] - HvLoggerTest, version 130\.264\.0, local time \d{4}-\d\d-\d\d \d\d:\d\d:\d\d \S+ \([+-]\d{4}\))")))
        << lines[0];
    EXPECT_TRUE(std::regex_match(lines[1], std::regex("\t\\^\\^\\^ from: .+,"))) << lines[1];
    EXPECT_TRUE(std::regex_match(lines[2], std::regex("\t\\^\\^\\^ at: .*HvSimpleLogger\\.cpp:\\d+"))) << lines[2];
    EXPECT_EQ(countLines(lines, HEADER), 1u);
    EXPECT_EQ(countLines(lines, "] - first event"), 1u);

    std::ostringstream address;
    address << static_cast<const void*>(&g_probe);
    const std::regex traceLine(R"(\[TRACE\] )" + DATE + R"( \[[^\]]+\] - \[this = )" + address.str() +
                               R"(\] -> \(count = 3, name = tray\))");
    std::size_t at = 0;
    while (at < lines.size() && !std::regex_match(lines[at], traceLine))
        ++at;
    ASSERT_LT(at + 2, lines.size()) << "no trace line for " << address.str();
    EXPECT_TRUE(std::regex_match(lines[at + 1], std::regex("\t\\^\\^\\^ from: .*Probe::trace\\(int, .*string.*\\),")))
        << lines[at + 1];
    EXPECT_EQ(lines[at + 2], "\t^^^ at: " __FILE__ ":" + std::to_string(Probe::TRACE_LINE));
}

TEST(SimpleLogger, InitializeTwiceSetsUpOnceAndSwitchesGateLogging)
{
    TemporaryFolder logs;
    inFreshProcess([&] {
        useLogFolder(logs.path());
        EXPECT_FALSE(Hv::SimpleLogger::isEnabled());
        const std::size_t threads = threadCount();
        Hv::SimpleLogger::initialize("First");
        Hv::SimpleLogger::initialize("First");
        Hv::SimpleLogger::initialize("Second");
        EXPECT_EQ(threadCount(), threads + 1);
        EXPECT_EQ(Hv::SimpleLogger::logger().getAllAppenders().size(), 1u);
        EXPECT_TRUE(Hv::SimpleLogger::isEnabled());
        HV_LOG_INFO("one event");
        {
            Hv::SimpleLogger::Suppressor outer;
            {
                Hv::SimpleLogger::Suppressor inner;
                EXPECT_FALSE(Hv::SimpleLogger::isEnabled());
            }
            EXPECT_TRUE(Hv::SimpleLogger::isEnabled()); // suppressors do not nest
        }
        Hv::SimpleLogger::disable();
        EXPECT_FALSE(Hv::SimpleLogger::isEnabled());
        { Hv::SimpleLogger::Suppressor suppressor; }
        EXPECT_TRUE(Hv::SimpleLogger::isEnabled()); // ending a suppressor always re-enables
    });
    EXPECT_FALSE(fs::exists(logs.path() / "Second"));
    const std::vector<fs::path> files = entries(logs.path() / "First");
    ASSERT_EQ(files.size(), 1u);
    EXPECT_EQ(countLines(splitLines(readFile(files[0])), HEADER), 1u);
}

TEST(SimpleLogger, DestroyActsOnceOnlyAfterInitializeAndLeavesNoActiveFile)
{
    TemporaryFolder logs;
    inFreshProcess([&] {
        useLogFolder(logs.path());
        Hv::SimpleLogger::destroy();
        EXPECT_FALSE(Hv::SimpleLogger::isEnabled());
        const std::size_t threads = threadCount();
        Hv::SimpleLogger::initialize("Run");
        HV_LOG_INFO("kept");
        Hv::SimpleLogger::destroy();
        Hv::SimpleLogger::destroy();
        EXPECT_FALSE(Hv::SimpleLogger::isEnabled());
        EXPECT_TRUE(Hv::SimpleLogger::logger().getAllAppenders().empty());
        int evaluated = 0;
        HV_LOG_INFO("after destroy " << ++evaluated);
        EXPECT_EQ(evaluated, 0);
        for (int wait = 0; wait < 200 && threadCount() != threads; ++wait)
            usleep(10000);
        EXPECT_EQ(threadCount(), threads) << "the cleaning thread was not cancelled";
    });
    // A process that exits right after destroy() must not crash in the cancelled thread's own exit.
    // (A separate program: a forked child cannot run log4cplus's exit code, its pool threads are gone.)
    const std::string run = "HV_SOFTPHONE_LOG_DIR=" + logs.path().string() + " " HV_LOGGER_RUN_HELPER;
    for (int attempt = 0; attempt < 10; ++attempt)
        EXPECT_EQ(std::system(run.c_str()), 0) << "attempt " << attempt;

    // Left behind: the last part under its scheduled name (and its pack), no active file.
    fs::path last;
    for (const fs::path& file : entries(logs.path() / "Run")) {
        EXPECT_FALSE(std::regex_match(file.filename().string(), std::regex(R"(.*-130\.264\.0-\d+)"))) << file;
        if (file.extension() != ".gz")
            last = file;
    }
    const std::vector<std::string> lines = splitLines(readFile(last));
    EXPECT_EQ(countLines(lines, HEADER), 1u);
    EXPECT_EQ(countLines(lines, "] - kept"), 1u);
    EXPECT_EQ(countLines(lines, "after destroy"), 0u);
}

TEST(SimpleLogger, UncreatableLogFolderThrowsNamingIt)
{
    TemporaryFolder base;
    const fs::path plainFile = base.path() / "plain";
    std::ofstream(plainFile.string()) << "not a folder";
    inFreshProcess([&] {
        useLogFolder(plainFile / "logs");
        try {
            Hv::SimpleLogger::initialize("Tray");
            ADD_FAILURE() << "initialize did not throw";
        } catch (const std::exception& error) {
            EXPECT_NE(std::string(error.what()).find((plainFile / "logs").string()), std::string::npos)
                << error.what();
        }
        EXPECT_NO_THROW(Hv::SimpleLogger::initialize("Tray")); // the flag stays set
        HV_LOG_INFO("nowhere to go");
    });
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
#if HV_ADDRESS_SANITIZER
    GTEST_SKIP() << "libfaketime's preload deadlocks in AddressSanitizer's start-up";
#endif
    TemporaryFolder logs;
    const std::string command = "TZ=UTC HV_SOFTPHONE_LOG_DIR=" + logs.path().string() +
                                " faketime -f '@2024-03-05 21:30:00 x1440' " HV_LOGGER_RUN_HELPER " --across-midnight";
    ASSERT_EQ(std::system(command.c_str()), 0);

    const fs::path folder = logs.path() / "DayChange";
    fs::path firstDay, secondDay;
    for (const fs::path& file : entries(folder)) {
        EXPECT_TRUE(file.extension() == ".2024-03-05" || file.extension() == ".2024-03-06" ||
                    file.extension() == ".gz") << "unexpected " << file;
        if (file.extension() == ".2024-03-05")
            firstDay = file;
        else if (file.extension() == ".2024-03-06")
            secondDay = file;
    }
    ASSERT_FALSE(firstDay.empty());
    EXPECT_EQ(secondDay, fs::path(firstDay).replace_extension(".2024-03-06"));

    std::vector<std::string> packed;
    for (const std::string& member : gzipMembers(firstDay.string() + ".gz"))
        if (!member.empty())
            packed.push_back(member);
    ASSERT_EQ(packed.size(), 2u) << "one member per earlier part of the day";
    const std::string firstDayText = packed[0] + packed[1] + readFile(firstDay);
    const std::vector<std::string> secondDayLines = splitLines(readFile(secondDay));
    ASSERT_FALSE(secondDayLines.empty());
    EXPECT_EQ(splitLines(packed[0]).at(0).find("[INFO ] 2024-03-05 21:30:"), 0u);
    EXPECT_NE(splitLines(packed[0]).at(0).find(HEADER), std::string::npos);
    EXPECT_EQ(secondDayLines[0].find("[INFO ] 2024-03-06 00:00:"), 0u);
    EXPECT_NE(secondDayLines[0].find(HEADER), std::string::npos);
    EXPECT_EQ(countLines(splitLines(firstDayText), HEADER) + countLines(secondDayLines, HEADER), 2u);

    // Every event once, in order, each on its own day's side of midnight.
    int expected = 0;
    for (const auto& [lines, day] : {std::pair{splitLines(firstDayText), std::string("2024-03-05")},
                                     std::pair{secondDayLines, std::string("2024-03-06")}}) {
        std::smatch match;
        for (const std::string& line : lines)
            if (std::regex_match(line, match, std::regex(R"(\[INFO \] (\S+) .* - event (\d+))"))) {
                EXPECT_EQ(match[1].str(), day) << line;
                EXPECT_EQ(std::stoi(match[2].str()), expected++) << line;
            }
    }
    EXPECT_GT(expected, 250);
}

} // namespace
