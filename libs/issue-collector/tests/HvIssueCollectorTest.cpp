#include "HvIssueCollector.h"

#include "HvLogCapture.h"
#include "HvTestSupport.h"

#include <gtest/gtest.h>

#include <boost/filesystem.hpp>

#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <algorithm>
#include <string>
#include <vector>

namespace {

namespace fs = boost::filesystem;
using Hv::Test::LogCapture, Hv::Test::readFile, Hv::Test::writeFile;

// Write system calls of this process so far.
unsigned long writeCalls()
{
    const std::string io = readFile("/proc/self/io");
    return std::stoul(io.substr(io.find("syscw:") + 6));
}

// One line a record, each written out as it comes, so that a walk cut short still leaves what it
// found; an older file is replaced. (The records' own text is the walks' tests' concern.)
TEST(Listings, WriteEveryRecordOnALineOfItsOwnAtOnce)
{
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), copy = dup(listener); // a record each
    ASSERT_EQ(listen(listener, 1), 0);
    const Hv::Test::TemporaryFolder folder;
    const fs::path path = folder.path() / "listing";
    for (const auto print : {Hv::IssueCollector::printNetwork, Hv::IssueCollector::printTaskList}) {
        writeFile(path, std::string(100000, 'x'));
        const unsigned long before = writeCalls();
        print(path);
        const unsigned long calls = writeCalls() - before;
        const std::string text = readFile(path);
        const std::size_t lines = std::count(text.begin(), text.end(), '\n');
        EXPECT_EQ(text.back(), '\n');
        EXPECT_EQ(text.find(std::string(1000, 'x')), std::string::npos);
        EXPECT_GE(lines, 2u);
        EXPECT_GE(calls, lines);
    }
    close(copy);
    close(listener);
}

// One report with HOME, XDG_CONFIG_HOME, the log folder and TMPDIR in a folder of the test, in a
// fresh process (the directories it reads are fixed for the life of a process). Neither the home
// nor the download folder exists yet: the download folder and its missing parents are made. Every
// character that a shell or the folder file's quoting would take is in one name.
TEST(ReportScenario, AnyCharacterInHomeAndDownloadFolderWorks)
{
    const Hv::Test::TemporaryFolder root;
    const std::string name = "quote\"d dollar$HOME back`quote` back\\slash caf\u00e9 \u00fcber";
    const fs::path home = root.path() / ("home " + name), config = root.path() / "config", logs = root.path() / "logs";
    const fs::path temp = root.path() / "tmp";
    writeFile(logs / "HalvoSoftphone" / "old.gz", std::string("\x1f\x8b\0\0binary", 10));
    std::string escaped;
    for (const char c : name)
        escaped += std::string(c == '"' || c == '\\' || c == '$' || c == '`' ? "\\" : "") + c;
    writeFile(config / "user-dirs.dirs", "XDG_DOWNLOAD_DIR=\"$HOME/new/Down " + escaped + "\"\n");
    fs::create_directories(temp);
    Hv::Test::inFreshProcess([&] {
        setenv("HOME", home.c_str(), 1);
        setenv("XDG_CONFIG_HOME", config.c_str(), 1);
        setenv("HV_SOFTPHONE_LOG_DIR", logs.c_str(), 1);
        setenv("TMPDIR", temp.c_str(), 1);
        const LogCapture capture;
        const fs::path archive = Hv::IssueCollector::prepareReport();
        EXPECT_EQ(archive.parent_path(), home / "new" / ("Down " + name));
        EXPECT_TRUE(capture.messages(log4cplus::ERROR_LOG_LEVEL).empty());
        // The whole content is the end-to-end tests' concern; here the archive at that path.
        setenv("ARCHIVE", archive.c_str(), 1);
        EXPECT_EQ(Hv::Test::commandOutput("unzip -Z1 \"$ARCHIVE\" report/logs/HalvoSoftphone/old.gz"), "report/logs/HalvoSoftphone/old.gz\n");
        // Nothing but the archive in the download folder; the emptied container, private to
        // the user, in the temporary folder. (A failed report: the report tool's command-line test.)
        EXPECT_EQ(std::vector<fs::path>(fs::directory_iterator(archive.parent_path()), {}), std::vector<fs::path>{archive});
        const std::vector<fs::path> left(fs::directory_iterator(temp), {});
        ASSERT_EQ(left.size(), 1u);
        EXPECT_TRUE(fs::is_empty(left[0]));
        EXPECT_EQ(fs::status(left[0]).permissions(), fs::owner_all);
    });
}

} // namespace
