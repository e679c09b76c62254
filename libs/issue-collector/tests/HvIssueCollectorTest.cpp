#include "HvIssueCollector.h"

#include "HvLogCapture.h"
#include "HvTestSupport.h"

#include <gtest/gtest.h>

#include <boost/filesystem.hpp>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <regex>
#include <set>
#include <string>
#include <vector>

namespace {

namespace fs = boost::filesystem;
using Hv::Test::LogCapture;
using Hv::Test::readFile;
using Hv::Test::writeFile;

std::string singleQuoted(const std::string& text)
{
    std::string quoted = "'";
    for (const char c : text)
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

std::vector<fs::path> entries(const fs::path& folder)
{
    return {fs::directory_iterator(folder), fs::directory_iterator()};
}

// One report with HOME, XDG_CONFIG_HOME, the log folder and TMPDIR in a folder of the test. Each
// report runs in a fresh process: the directories it reads are fixed for the life of a process.
class ReportScenario : public ::testing::Test {
protected:
    ReportScenario()
    {
        writeFile(m_logs / "HalvoSoftphone" / "2026-01-01_000000_UTC-130.264.0-1", "first log\nline two\n");
        writeFile(m_logs / "HalvoSoftphone" / "old.gz", std::string("\x1f\x8b\0\0binary", 10));
        writeFile(m_logs / "top.log", "top level\n");
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

    // The one container folder a report left in the temporary folder.
    fs::path container() const
    {
        const std::vector<fs::path> left = entries(m_temp);
        EXPECT_EQ(left.size(), 1u);
        return left.empty() ? fs::path() : left.front();
    }

    Hv::Test::TemporaryFolder m_root;
    fs::path m_home = m_root.path() / "home";
    fs::path m_config = m_root.path() / "config";
    fs::path m_logs = m_root.path() / "logs";
    fs::path m_temp = m_root.path() / "tmp";
};

TEST_F(ReportScenario, ListsEveryConnectionAndProcessAndLeavesTheEmptyContainer)
{
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    ASSERT_TRUE(bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0 && listen(listener, 1) == 0
                && getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size) == 0);
    const std::string pid = std::to_string(getpid());
    const std::string port = std::to_string(ntohs(address.sin_port));

    report("$HOME/My Downloads", [&](const fs::path& archive, const LogCapture& capture) {
        ASSERT_EQ(archive.parent_path(), m_home / "My Downloads");
        EXPECT_TRUE(std::regex_match(archive.filename().string(),
                                     std::regex(R"(halvo-softphone-report-\d{4}-\d\d-\d\d_\d{6}_UTC-130\.264\.0\.zip)")));
        const std::string unzip = "unzip -p " + singleQuoted(archive.string()) + " ";
        // One well-formed line per record; the test's listener and process among them.
        const std::string network = Hv::Test::commandOutput(unzip + "report/nestat");
        EXPECT_NE(network.find("    TCP 127.0.0.1:" + port + " --> 0.0.0.0:0 LISTEN, PID " + pid + "\n"), std::string::npos);
        for (const std::string& line : Hv::Test::splitLines(network))
            EXPECT_TRUE(std::regex_match(line, std::regex(R"(    TCP (\d+\.){3}\d+:\d+ --> (\d+\.){3}\d+:\d+ [A-Z_0-9]+, PID \d+)")))
                << line;
        const std::string tasks = Hv::Test::commandOutput(unzip + "report/tasklist");
        EXPECT_NE(tasks.find(" PROCESS 'issue-collector', OWNER '" + std::string(getpwuid(geteuid())->pw_name) + "', PID " + pid + "\n"),
                  std::string::npos);

        std::vector<std::string> steps = capture.messages(log4cplus::DEBUG_LOG_LEVEL);
        std::erase_if(steps, [](const std::string& line) { return line.rfind("Unable to read descriptors of pid: ", 0) == 0; });
        const fs::path left = container();
        EXPECT_EQ(steps, (std::vector<std::string>{"Temporary folder: \"" + left.string() + "\"", "Creating netstat file",
                                                   "Creating tasklist file",
                                                   "Copying softphoe logs to \"" + (left / "report" / "logs").string() + "\"",
                                                   "Compressing debug files"}));
        EXPECT_TRUE(fs::is_empty(left));
        EXPECT_TRUE(capture.messages(log4cplus::ERROR_LOG_LEVEL).empty());
    });
    close(listener);
}

TEST_F(ReportScenario, AnyCharacterInHomeAndDownloadFolderWorks)
{
    // Neither folder exists yet: the download folder and its missing parents are made.
    for (const std::string name : {"quote\"d", "dollar$HOME", "back`quote`", "back\\slash", "with blanks", "caf\u00e9 \u00fcber"}) {
        SCOPED_TRACE(name);
        m_home = m_root.path() / ("home " + name);
        std::string escaped;
        for (const char c : name)
            escaped += std::string(c == '"' || c == '\\' || c == '$' || c == '`' ? "\\" : "") + c;
        fs::remove_all(m_temp);
        report("$HOME/new/Down " + escaped, [&](const fs::path& archive, const LogCapture& capture) {
            EXPECT_EQ(archive.parent_path(), m_home / "new" / ("Down " + name));
            EXPECT_TRUE(capture.messages(log4cplus::ERROR_LOG_LEVEL).empty());
            std::set<std::string> listed;
            for (const std::string& line : Hv::Test::splitLines(Hv::Test::commandOutput("unzip -Z1 " + singleQuoted(archive.string()))))
                if (line.rfind("report/logs/HalvoSoftphoneTest/", 0) != 0) // the report's own log
                    listed.insert(line);
            EXPECT_EQ(listed, (std::set<std::string>{"report/", "report/nestat", "report/tasklist", "report/logs/",
                                                     "report/logs/top.log", "report/logs/HalvoSoftphone/",
                                                     "report/logs/HalvoSoftphone/old.gz",
                                                     "report/logs/HalvoSoftphone/2026-01-01_000000_UTC-130.264.0-1"}));
        });
    }
}

TEST_F(ReportScenario, FailedLogCopyKeepsTheListingsAndMakesNoArchive)
{
    // A socket file cannot be opened for copying.
    const fs::path socketPath = m_logs / "control.sock";
    const int unixSocket = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    ASSERT_LT(socketPath.string().size(), sizeof(address.sun_path));
    socketPath.string().copy(address.sun_path, sizeof(address.sun_path) - 1);
    ASSERT_EQ(bind(unixSocket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);

    report("$HOME/Downloads", [&](const fs::path& archive, const LogCapture& capture) {
        EXPECT_TRUE(archive.empty());
        EXPECT_EQ(capture.count(log4cplus::ERROR_LOG_LEVEL, "Unable to copy \"" + socketPath.string() + "\" file to "), 1u);
        EXPECT_EQ(capture.count(log4cplus::DEBUG_LOG_LEVEL, "Compressing debug files"), 0u);
        EXPECT_TRUE(fs::is_regular_file(container() / "report" / "nestat"));
        EXPECT_GT(fs::file_size(container() / "report" / "tasklist"), 0u);
    });
    close(unixSocket);
    EXPECT_FALSE(fs::exists(m_home / "Downloads"));
}

} // namespace
