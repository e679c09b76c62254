#include "HvPlatform.h"
#include "HvPlatformDetail.h"
#include "HvTestSupport.h"

#include "HvLogCapture.h"

#include <gtest/gtest.h>

#include <boost/filesystem/operations.hpp>

#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <regex>

namespace fs = boost::filesystem;
using Hv::Test::TemporaryFolder;
using Hv::Test::readFile;
using Hv::Test::writeFile;

namespace {

// A bound Unix socket file: an entry that cannot be copied, even by root.
void createSocketFile(const fs::path& path)
{
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_GE(fd, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    ASSERT_EQ(0, ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)));
    ::close(fd);
}

std::string quoted(const fs::path& path)
{
    std::ostringstream text;
    text << path;
    return text.str();
}

} // namespace

TEST(PlatformRemoveOldLogs, RemovesOnlyOldEntries)
{
    Hv::Test::LogCapture capture;
    TemporaryFolder logs;
    const std::time_t now = std::time(nullptr);
    const std::time_t fiveDaysAgo = now - 5 * 86400;
    writeFile(logs.path() / "young.log", "y");
    fs::last_write_time(logs.path() / "young.log", now - 3 * 86400);
    writeFile(logs.path() / "old.log.gz", "o");
    fs::last_write_time(logs.path() / "old.log.gz", fiveDaysAgo);
    fs::create_directory(logs.path() / "old-empty");
    fs::last_write_time(logs.path() / "old-empty", fiveDaysAgo);
    fs::create_directory(logs.path() / "old-full");
    writeFile(logs.path() / "old-full" / "inner.log", "i");
    fs::last_write_time(logs.path() / "old-full", fiveDaysAgo);

    Hv::removeOldLogs(logs.path());

    EXPECT_TRUE(fs::exists(logs.path() / "young.log"));
    EXPECT_FALSE(fs::exists(logs.path() / "old.log.gz"));
    EXPECT_FALSE(fs::exists(logs.path() / "old-empty"));
    EXPECT_TRUE(fs::exists(logs.path() / "old-full" / "inner.log"));

    EXPECT_NO_THROW(Hv::removeOldLogs(logs.path() / "missing"));
    EXPECT_EQ(1u, capture.count(log4cplus::TRACE_LOG_LEVEL, "[] -> (directory = " + quoted(logs.path()) + ")"));
}

TEST(PlatformCopyDirectory, CopiesNestedFoldersAndLinks)
{
    TemporaryFolder from;
    TemporaryFolder to;
    writeFile(from.path() / "top.txt", "top");
    fs::create_directories(from.path() / "a" / "b");
    writeFile(from.path() / "a" / "b" / "deep.txt", "deep");
    fs::create_symlink("a/b/deep.txt", from.path() / "link");
    fs::create_symlink("nowhere", from.path() / "a" / "dangling");
    writeFile(to.path() / "top.txt", "older and longer");

    ASSERT_TRUE(Hv::copyDirectory(from.path(), to.path()));

    EXPECT_EQ("top", readFile(to.path() / "top.txt"));
    EXPECT_EQ("deep", readFile(to.path() / "a" / "b" / "deep.txt"));
    ASSERT_TRUE(fs::is_symlink(to.path() / "link"));
    EXPECT_EQ(fs::path("a/b/deep.txt"), fs::read_symlink(to.path() / "link"));
    ASSERT_TRUE(fs::is_symlink(to.path() / "a" / "dangling"));
    EXPECT_EQ(fs::path("nowhere"), fs::read_symlink(to.path() / "a" / "dangling"));

    EXPECT_THROW(Hv::copyDirectory(from.path() / "missing", to.path()), fs::filesystem_error);
}

TEST(PlatformCopyDirectory, StopsAtTheFirstFailure)
{
    Hv::Test::LogCapture capture;
    {
        TemporaryFolder from;
        TemporaryFolder to;
        createSocketFile(from.path() / "socket");
        EXPECT_FALSE(Hv::copyDirectory(from.path(), to.path()));
        EXPECT_EQ(1u, capture.count(log4cplus::ERROR_LOG_LEVEL, "Unable to copy " + quoted(from.path() / "socket")
                                                                 + " file to " + quoted(to.path()) + ", error: "));
    }
    {
        // A folder whose name is taken by a file in the destination, one level down.
        TemporaryFolder from;
        TemporaryFolder to;
        fs::create_directories(from.path() / "sub" / "inner");
        fs::create_directory(to.path() / "sub");
        writeFile(to.path() / "sub" / "inner", "a file");
        EXPECT_FALSE(Hv::copyDirectory(from.path(), to.path()));
        EXPECT_EQ(1u, capture.count(log4cplus::ERROR_LOG_LEVEL,
                                    "Unable to create " + quoted(to.path() / "sub" / "inner") + " directory, error: "));
    }
    EXPECT_EQ(2u, capture.messages(log4cplus::ERROR_LOG_LEVEL).size());
}

TEST(PlatformHideSecretInfo, MasksPasswordAndLicenseValues)
{
    EXPECT_EQ("{\"user\":\"bob\",\"password\":\"*\",\"engineLicense\":\"*\"}",
              Hv::hideSecretInfo("{\"user\":\"bob\",\"password\":\"s3cr\\et\",\"engineLicense\":\"AB-12\"}"));
    EXPECT_EQ("\"password\":\"*\"", Hv::hideSecretInfo("\"password\":\"\""));
    EXPECT_EQ("\"password\": \"abc\"", Hv::hideSecretInfo("\"password\": \"abc\""));
    EXPECT_EQ("\"Password\":\"abc\",\"passwords\":\"x\"", Hv::hideSecretInfo("\"Password\":\"abc\",\"passwords\":\"x\""));
    EXPECT_EQ("a\"password\":\"*\"b\"password\":\"*\"c",
              Hv::hideSecretInfo("a\"password\":\"x1\"b\"password\":\"x2\"c"));
    EXPECT_EQ("no secrets", Hv::hideSecretInfo("no secrets"));
}

TEST(PlatformRunCommand, BuildsAndRunsTheShellLine)
{
    using Hv::PlatformDetail::commandLine;
    EXPECT_EQ("cd \"/tmp/x\"; ls > \"/tmp/x/out.txt\"", commandLine("ls", "/tmp/x/out.txt", "/tmp/x"));
    EXPECT_EQ("ls -l | wc", commandLine("ls -l | wc", "", ""));
    EXPECT_EQ("cd \"/a b\"; ls", commandLine("ls", "", "/a b"));
    EXPECT_EQ("ls > \"out\"", commandLine("ls", "out", ""));

    TemporaryFolder folder;
    fs::create_directory(folder.path() / "work dir");
    const fs::path output = folder.path() / "out.txt";
    EXPECT_EQ(0, Hv::runCommand("pwd", output, folder.path() / "work dir"));
    EXPECT_EQ((folder.path() / "work dir").string() + "\n", readFile(output));

    const int status = Hv::runCommand("exit 3", "", "");
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(3, WEXITSTATUS(status));
}

TEST(PlatformProcessOwner, ReadsTheEffectiveUid)
{
    Hv::Test::LogCapture capture;
    EXPECT_EQ(std::to_string(::geteuid()), Hv::processOwner(static_cast<uint32_t>(::getpid())));
    EXPECT_EQ("0", Hv::processOwner(1));

    // Larger than any pid_max the kernel accepts.
    EXPECT_EQ("", Hv::processOwner(0x7ffffff0u));
    EXPECT_EQ(1u, capture.count(log4cplus::INFO_LOG_LEVEL, "Unable to get process info for pid: 2147483632"));
    EXPECT_TRUE(capture.messages(log4cplus::ERROR_LOG_LEVEL).empty());

    using Hv::PlatformDetail::effectiveUidFromStatus;
    EXPECT_EQ("1001", effectiveUidFromStatus("Name:\tx\nUmask:\t0022\nUid:\t1000\t1001\t1000\t1000\nGid:\t5\t5\t5\t5\n"));
    EXPECT_FALSE(effectiveUidFromStatus("Name:\tx\nGid:\t5\t5\t5\t5\n"));
    EXPECT_FALSE(effectiveUidFromStatus("Uid:\t1000\n"));
    EXPECT_FALSE(effectiveUidFromStatus("Uid:\t1000\tabc\n"));
}

TEST(PlatformProcessOwner, TaskInfoSizeDecidesTheAnswer)
{
    Hv::Test::LogCapture capture;
    using Hv::PlatformDetail::ownerFromTaskInfo;
    EXPECT_EQ("501", ownerFromTaskInfo(42, 232, 232, 501));
    EXPECT_EQ("", ownerFromTaskInfo(42, 0, 232, 501));
    EXPECT_EQ("", ownerFromTaskInfo(43, 100, 232, 501));
    EXPECT_EQ(1u, capture.count(log4cplus::INFO_LOG_LEVEL, "Unable to get process info for pid: 42"));
    EXPECT_EQ(0u, capture.count(log4cplus::INFO_LOG_LEVEL, "pid: 43"));
    EXPECT_EQ(std::vector<std::string>{"Error while getting process info for pid: 43"},
              capture.messages(log4cplus::ERROR_LOG_LEVEL));
}

TEST(PlatformSession, NoLoginSessionMeansInactive)
{
    boost::system::error_code error;
    if (fs::directory_iterator("/run/systemd/sessions", error) != fs::directory_iterator())
        GTEST_SKIP() << "logind knows sessions here; the answer depends on the seat";
    EXPECT_FALSE(Hv::isSystemSessionActive());
}

TEST(PlatformUniqueName, DiffersBetweenCalls)
{
    const std::string first = Hv::uniqueName();
    const std::string second = Hv::uniqueName();
    EXPECT_NE(first, second);
    const std::regex form("hv-temp-[0-9]+-[0-9]+");
    EXPECT_TRUE(std::regex_match(first, form)) << first;
    EXPECT_TRUE(std::regex_match(second, form)) << second;
}

TEST(PlatformLockDescriptor, ParksTheDescriptorOnDevNull)
{
    int ends[2];
    ASSERT_EQ(0, ::pipe(ends));
    const int kept = Hv::lockDescriptor(ends[1]);
    ASSERT_GE(kept, 0);
    ASSERT_NE(ends[1], kept);
    EXPECT_EQ(1, ::write(ends[1], "x", 1));
    EXPECT_EQ(1, ::write(kept, "y", 1));
    ::close(ends[1]);
    ::close(kept);
    char buffer[8] = {};
    EXPECT_EQ(1, ::read(ends[0], buffer, sizeof(buffer)));
    EXPECT_EQ('y', buffer[0]);
    ::close(ends[0]);
}
