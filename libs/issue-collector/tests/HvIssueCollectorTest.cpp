#include "HvIssueCollector.h"

#include "HvLogCapture.h"
#include "HvTestSupport.h"

#include <gtest/gtest.h>

#include <boost/filesystem.hpp>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <algorithm>
#include <string>
#include <vector>

namespace {

namespace fs = boost::filesystem;
using Hv::Test::LogCapture;
using Hv::Test::readFile;
using Hv::Test::writeFile;

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

// One report with HOME, XDG_CONFIG_HOME, the log folder and TMPDIR in a folder of the test. Each
// report runs in a fresh process: the directories it reads are fixed for the life of a process.
class ReportScenario : public ::testing::Test {
protected:
    ReportScenario()
    {
        writeFile(m_logs / "HalvoSoftphone" / "old.gz", std::string("\x1f\x8b\0\0binary", 10));
    }

    // `check` runs in the report's process, with the archive path and the log lines it caused.
    void report(const std::string& downloads, const std::function<void(const fs::path&, const LogCapture&)>& check)
    {
        writeFile(m_config / "user-dirs.dirs", "XDG_DOWNLOAD_DIR=\"" + downloads + "\"\n");
        fs::create_directories(m_temp);
        Hv::Test::inFreshProcess([&] {
            setenv("HOME", m_home.c_str(), 1);
            setenv("XDG_CONFIG_HOME", m_config.c_str(), 1);
            setenv("HV_SOFTPHONE_LOG_DIR", m_logs.c_str(), 1);
            setenv("TMPDIR", m_temp.c_str(), 1);
            const LogCapture capture;
            check(Hv::IssueCollector::prepareReport(), capture);
        });
    }

    Hv::Test::TemporaryFolder m_root;
    fs::path m_home = m_root.path() / "home";
    fs::path m_config = m_root.path() / "config";
    fs::path m_logs = m_root.path() / "logs";
    fs::path m_temp = m_root.path() / "tmp";
};

TEST_F(ReportScenario, AnyCharacterInHomeAndDownloadFolderWorks)
{
    // Neither folder exists yet: the download folder and its missing parents are made. Every
    // character that a shell or the folder file's quoting would take is in one name.
    const std::string name = "quote\"d dollar$HOME back`quote` back\\slash caf\u00e9 \u00fcber";
    m_home = m_root.path() / ("home " + name);
    std::string escaped;
    for (const char c : name)
        escaped += std::string(c == '"' || c == '\\' || c == '$' || c == '`' ? "\\" : "") + c;
    report("$HOME/new/Down " + escaped, [&](const fs::path& archive, const LogCapture& capture) {
        EXPECT_EQ(archive.parent_path(), m_home / "new" / ("Down " + name));
        EXPECT_TRUE(capture.messages(log4cplus::ERROR_LOG_LEVEL).empty());
        // The whole content is the end-to-end tests' concern; here the archive at that path.
        setenv("ARCHIVE", archive.c_str(), 1);
        EXPECT_EQ(Hv::Test::commandOutput("unzip -Z1 \"$ARCHIVE\" report/logs/HalvoSoftphone/old.gz"), "report/logs/HalvoSoftphone/old.gz\n");
        // Nothing but the archive in the download folder; the emptied container, private to
        // the user, in the temporary folder.
        EXPECT_EQ(std::vector<fs::path>(fs::directory_iterator(archive.parent_path()), {}), std::vector<fs::path>{archive});
        const std::vector<fs::path> left(fs::directory_iterator(m_temp), {});
        ASSERT_EQ(left.size(), 1u);
        EXPECT_TRUE(fs::is_empty(left[0]));
        EXPECT_EQ(fs::status(left[0]).permissions(), fs::owner_all);
    });
}

// A zip that fails half-way through its archive is the report tool's command-line test.
TEST_F(ReportScenario, FailedReportLeavesNothingBehind)
{
    // A socket file cannot be opened for copying.
    const fs::path socketPath = m_logs / "control.sock";
    const int unixSocket = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{AF_UNIX, {}};
    socketPath.string().copy(address.sun_path, sizeof(address.sun_path) - 1);
    ASSERT_EQ(bind(unixSocket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);

    report("$HOME/Downloads", [&](const fs::path& archive, const LogCapture& capture) {
        EXPECT_TRUE(archive.empty());
        EXPECT_EQ(capture.count(log4cplus::ERROR_LOG_LEVEL, "Unable to copy \"" + socketPath.string() + "\" file to "), 1u);
        // The copy of the logs and the listings go with the container.
        EXPECT_TRUE(fs::is_empty(m_temp));
    });
    EXPECT_FALSE(fs::exists(m_home / "Downloads"));
    close(unixSocket);
}

} // namespace
