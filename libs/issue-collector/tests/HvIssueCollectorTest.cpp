#include "HvTestSupport.h"
#include "HvIssueCollector.h"

#include <gtest/gtest.h>

#include <log4cplus/loglevel.h>

#include <boost/filesystem.hpp>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

namespace fs = boost::filesystem;
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
    std::vector<fs::path> found;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder))
        found.push_back(entry.path());
    return found;
}

struct LogLine {
    int level;
    std::string message;
};

// One run of the report in a process of its own, with HOME, XDG_CONFIG_HOME, the log folder
// and TMPDIR pointing into a private folder.
class ReportScenario : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_root = fs::temp_directory_path() / fs::unique_path("hv-report-%%%%-%%%%");
        m_home = m_root / "home";
        m_config = m_root / "config";
        m_logs = m_root / "logs";
        m_temp = m_root / "tmp";
        for (const fs::path& folder : {m_home, m_config, m_logs, m_temp})
            fs::create_directories(folder);
        writeFile(m_logs / "HalvoSoftphone" / "2026-01-01_000000_UTC-130.264.0-1", "first log\nline two\n");
        writeFile(m_logs / "HalvoSoftphone" / "old.gz", std::string("\x1f\x8b\0\0binary", 10));
        writeFile(m_logs / "top.log", "top level\n");
    }

    void TearDown() override { fs::remove_all(m_root); }

    void downloadsAt(const std::string& value)
    {
        writeFile(m_config / "user-dirs.dirs", "XDG_DESKTOP_DIR=\"$HOME/Desktop\"\nXDG_DOWNLOAD_DIR=\"" + value + "\"\n");
    }

    // Runs the report; returns the printed archive path and fills m_lines.
    std::string runReport(const std::string& path = "/usr/local/bin:/usr/bin:/bin")
    {
        const fs::path linesFile = m_root / "lines.txt";
        const fs::path outputFile = m_root / "output.txt";
        // A clean environment, except the sanitizers' settings of this run.
        std::string sanitizers;
        for (const char* name : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS"})
            if (const char* value = std::getenv(name))
                sanitizers += std::string(" ") + name + "=" + singleQuoted(value);
        const std::string command = "env -i" + sanitizers + " HOME=" + singleQuoted(m_home.string()) + " XDG_CONFIG_HOME="
                                    + singleQuoted(m_config.string()) + " HV_SOFTPHONE_LOG_DIR="
                                    + singleQuoted(m_logs.string()) + " TMPDIR=" + singleQuoted(m_temp.string())
                                    + " PATH=" + singleQuoted(path) + " " + HV_REPORT_SCENARIO + " "
                                    + singleQuoted(linesFile.string()) + " " + singleQuoted(outputFile.string())
                                    + " > /dev/null";
        EXPECT_EQ(std::system(command.c_str()), 0) << command;

        m_lines.clear();
        std::istringstream lines(readFile(linesFile));
        std::string line;
        while (std::getline(lines, line)) {
            const std::size_t tab = line.find('\t');
            if (tab != std::string::npos)
                m_lines.push_back({std::atoi(line.c_str()), line.substr(tab + 1)});
        }
        return readFile(outputFile);
    }

    std::vector<std::string> messages(int level) const
    {
        std::vector<std::string> found;
        for (const LogLine& line : m_lines)
            if (line.level == level)
                found.push_back(line.message);
        return found;
    }

    std::size_t count(int level, const std::string& text) const
    {
        std::size_t found = 0;
        for (const LogLine& line : m_lines)
            found += line.level == level && line.message.find(text) != std::string::npos;
        return found;
    }

    // The one container folder the run left in the temporary folder.
    fs::path container() const
    {
        const std::vector<fs::path> left = entries(m_temp);
        EXPECT_EQ(left.size(), 1u);
        if (left.empty())
            return {};
        EXPECT_EQ(left.front().filename().string().rfind("hv-temp", 0), 0u) << left.front();
        EXPECT_TRUE(fs::is_directory(left.front()));
        return left.front();
    }

    fs::path m_root;
    fs::path m_home;
    fs::path m_config;
    fs::path m_logs;
    fs::path m_temp;
    std::vector<LogLine> m_lines;
};

int listenOnLoopback(uint16_t& port)
{
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    if (bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 || listen(fd, 1) != 0
        || getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) != 0)
        ADD_FAILURE() << "cannot listen on 127.0.0.1";
    port = ntohs(address.sin_port);
    return fd;
}

TEST_F(ReportScenario, ArchivesLogsAndListingsIntoDownloads)
{
    downloadsAt("$HOME/My Downloads");
    fs::create_directories(m_home / "My Downloads");
    uint16_t port = 0;
    const int listener = listenOnLoopback(port);

    const fs::path archive = runReport();
    close(listener);

    ASSERT_FALSE(archive.empty());
    EXPECT_EQ(archive.parent_path(), m_home / "My Downloads");
    EXPECT_TRUE(std::regex_match(archive.filename().string(),
                                 std::regex(R"(halvo-softphone-report-\d{4}-\d{2}-\d{2}_\d{6}_UTC-130\.264\.0\.zip)")))
        << archive;
    ASSERT_TRUE(fs::is_regular_file(archive));

    const std::string listing = Hv::Test::commandOutput("unzip -l " + singleQuoted(archive.string()));
    for (const char* entry : {" report/nestat\n", " report/tasklist\n", " report/logs/top.log\n",
                              " report/logs/HalvoSoftphone/old.gz\n",
                              " report/logs/HalvoSoftphone/2026-01-01_000000_UTC-130.264.0-1\n"})
        EXPECT_NE(listing.find(entry), std::string::npos) << entry << " missing in\n" << listing;

    auto member = [&](const std::string& name) { return Hv::Test::commandOutput("unzip -p " + singleQuoted(archive.string()) + " " + name); };
    EXPECT_EQ(member("report/logs/top.log"), readFile(m_logs / "top.log"));
    EXPECT_EQ(member("report/logs/HalvoSoftphone/old.gz"), readFile(m_logs / "HalvoSoftphone" / "old.gz"));
    EXPECT_EQ(member("report/logs/HalvoSoftphone/2026-01-01_000000_UTC-130.264.0-1"), "first log\nline two\n");

    // Listings: one well-formed line per record, this test's own listener and process among them.
    const std::string pid = std::to_string(getpid());
    const std::string network = member("report/nestat");
    EXPECT_NE(network.find("    TCP 127.0.0.1:" + std::to_string(port) + " --> 0.0.0.0:0 LISTEN, PID " + pid + "\n"),
              std::string::npos)
        << network;
    std::istringstream networkLines(network);
    const std::regex connectionLine(R"(    TCP (\d+\.){3}\d+:\d+ --> (\d+\.){3}\d+:\d+ [A-Z_0-9]+, PID \d+)");
    for (std::string line; std::getline(networkLines, line);)
        EXPECT_TRUE(std::regex_match(line, connectionLine)) << line;

    const std::string tasks = member("report/tasklist");
    const std::string owner = getpwuid(geteuid())->pw_name;
    EXPECT_NE(tasks.find(" PROCESS 'issue-collector', OWNER '" + owner + "', PID " + pid + "\n"), std::string::npos)
        << tasks;
    EXPECT_EQ(tasks.back(), '\n');

    // The report folder is gone, its container stays, empty.
    const fs::path left = container();
    EXPECT_TRUE(fs::is_empty(left));

    const std::vector<std::string> expected = {
        "Temporary folder: \"" + left.string() + "\"",
        "Creating netstat file",
        "Creating tasklist file",
        "Copying softphoe logs to \"" + (left / "report" / "logs").string() + "\"",
        "Compressing debug files",
    };
    // Processes that end during the walk add lines of their own; the report's steps are these.
    std::vector<std::string> steps = messages(log4cplus::DEBUG_LOG_LEVEL);
    std::erase_if(steps, [](const std::string& line) { return line.rfind("Unable to read descriptors of pid: ", 0) == 0; });
    EXPECT_EQ(steps, expected);
    EXPECT_TRUE(messages(log4cplus::ERROR_LOG_LEVEL).empty());
}

TEST_F(ReportScenario, DownloadFolderThatCannotBeCreatedGivesEmptyPath)
{
    // Runs as root in CI, so an unwritable folder is made by a regular file in its path.
    writeFile(m_home / "file", "a file, not a folder\n");
    downloadsAt("$HOME/file/Downloads");

    EXPECT_EQ(runReport(), "");
    EXPECT_EQ(count(log4cplus::ERROR_LOG_LEVEL, "Unable to create download folder \"" + (m_home / "file" / "Downloads").string()
                                                    + "\", error: Not a directory"),
              1u);
    // Nothing is cleaned up after a failure.
    const fs::path left = container();
    EXPECT_TRUE(fs::is_regular_file(left / "report" / "nestat"));
    EXPECT_TRUE(fs::is_regular_file(left / "report" / "tasklist"));
    EXPECT_EQ(readFile(left / "report" / "logs" / "top.log"), "top level\n");
}

TEST_F(ReportScenario, MissingZipToolGivesEmptyPath)
{
    fs::create_directories(m_home / "Downloads");
    EXPECT_EQ(runReport("/nonexistent-bin"), "");
    EXPECT_TRUE(entries(m_home / "Downloads").empty());
    EXPECT_EQ(count(log4cplus::ERROR_LOG_LEVEL, "Unable to pack folder: "), 1u);
    EXPECT_EQ(count(log4cplus::DEBUG_LOG_LEVEL, "Compressing debug files"), 1u);
}

TEST_F(ReportScenario, FailedLogCopyKeepsTheListings)
{
    fs::create_directories(m_home / "Downloads");
    uint16_t port = 0;
    const int listener = listenOnLoopback(port);
    // A socket file cannot be opened for copying.
    const fs::path socketPath = m_logs / "control.sock";
    const int unixSocket = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    ASSERT_LT(socketPath.string().size(), sizeof(address.sun_path));
    std::snprintf(address.sun_path, sizeof(address.sun_path), "%s", socketPath.c_str());
    ASSERT_EQ(bind(unixSocket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);

    EXPECT_EQ(runReport(), "");
    close(unixSocket);
    close(listener);

    EXPECT_TRUE(entries(m_home / "Downloads").empty());
    EXPECT_EQ(count(log4cplus::ERROR_LOG_LEVEL, "Unable to copy \"" + socketPath.string() + "\" file to "), 1u);
    EXPECT_EQ(count(log4cplus::DEBUG_LOG_LEVEL, "Compressing debug files"), 0u);
    const fs::path left = container();
    EXPECT_GT(fs::file_size(left / "report" / "nestat"), 0u);
    EXPECT_GT(fs::file_size(left / "report" / "tasklist"), 0u);
}

TEST_F(ReportScenario, AnyCharacterInHomeAndDownloadFolderWorks)
{
    // Neither folder exists yet: the download folder and its missing parents are made.
    for (const std::string name : {"quote\"d", "dollar$HOME", "back`quote`", "back\\slash", "with blanks", "caf\u00e9 \u00fcber"}) {
        SCOPED_TRACE(name);
        m_home = m_root / ("home " + name);
        std::string escaped;
        for (const char c : name)
            escaped += std::string(c == '"' || c == '\\' || c == '$' || c == '`' ? "\\" : "") + c;
        downloadsAt("$HOME/new/Down " + escaped);
        fs::remove_all(m_temp);
        fs::create_directories(m_temp);

        const fs::path archive = runReport();
        EXPECT_EQ(archive.parent_path(), m_home / "new" / ("Down " + name));
        EXPECT_TRUE(messages(log4cplus::ERROR_LOG_LEVEL).empty());
        std::istringstream listing(Hv::Test::commandOutput("unzip -Z1 " + singleQuoted(archive.string())));
        std::set<std::string> listed;
        for (std::string line; std::getline(listing, line);)
            if (line.rfind("report/logs/HalvoSoftphoneTest/", 0) != 0) // the scenario's own log
                listed.insert(line);
        EXPECT_EQ(listed, (std::set<std::string>{"report/", "report/nestat", "report/tasklist", "report/logs/",
                                                 "report/logs/top.log", "report/logs/HalvoSoftphone/",
                                                 "report/logs/HalvoSoftphone/old.gz",
                                                 "report/logs/HalvoSoftphone/2026-01-01_000000_UTC-130.264.0-1"}));
    }
}

} // namespace
