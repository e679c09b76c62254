// Whole logger runs, each in a process of its own: the logger, its thread and its folder are
// process-wide.

#include "HvSimpleLogger.h"
#include "HvTestSupport.h"
#include "HvTrace.h"

#include <boost/filesystem.hpp>
#include <gtest/gtest.h>

#include <ctime>
#include <regex>
#include <sstream>

namespace {

using namespace Hv::Test;
namespace fs = boost::filesystem;

const std::string HEADER = ", version 130.264.0, local time ";
const std::string STAMP = R"( \d{4}-\d\d-\d\d \d\d:\d\d:\d\d,\d{3}\.\d{3} \[[^\]]+\] - )";

struct Probe {
    static constexpr int TRACE_LINE = __LINE__ + 2;
    std::string label() const { return "x"; }
    void trace(int count, const std::string& name) { HV_TRACE(count, name, this->label(), (count > 2)); }
} g_probe; // global, so that its address is the same in the forked child

std::vector<fs::path> entries(const fs::path& folder)
{
    return {fs::directory_iterator(folder), fs::directory_iterator()};
}

std::size_t countLines(const std::vector<std::string>& lines, const std::string& text)
{
    return std::count_if(lines.begin(), lines.end(), [&](const std::string& line) { return line.find(text) != std::string::npos; });
}

TEST(SimpleLogger, RunWritesHeaderAndTraceLinesIntoAFileOfItsOwn)
{
    TemporaryFolder logs;
    const std::time_t before = std::time(nullptr);
    const pid_t pid = inFreshProcess([&] {
        setenv("HV_SOFTPHONE_LOG_DIR", logs.path().c_str(), 1);
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
    for (const fs::path& file : entries(logs.path() / "DayChange")) {
        EXPECT_TRUE(file.extension() == ".2024-03-05" || file.extension() == ".2024-03-06" ||
                    file.extension() == ".gz") << "unexpected " << file;
        if (file.extension() == ".2024-03-05")
            firstDay = file;
    }
    ASSERT_FALSE(firstDay.empty());
    const std::string packed = commandOutput("gzip -dc " + firstDay.string() + ".gz");
    const std::vector<std::string> days[] = {splitLines(packed + readFile(firstDay)),
                                             splitLines(readFile(fs::path(firstDay).replace_extension(".2024-03-06")))};
    ASSERT_FALSE(days[1].empty());
    EXPECT_EQ(days[0][0].find("[INFO ] 2024-03-05 21:30:"), 0u);
    // The last hourly packing took everything before it.
    EXPECT_EQ(readFile(firstDay).find("[INFO ] 2024-03-05 23:3"), 0u);
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
