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

namespace fs = boost::filesystem;
using namespace Hv::Test;

namespace {

TEST(PlatformRemoveOldLogs, RemovesOnlyEntriesOlderThanFourDays)
{
    TemporaryFolder logs;
    const std::time_t now = std::time(nullptr);
    writeFile(logs.path() / "young.log", "y");
    writeFile(logs.path() / "old.log.gz", "o");
    fs::create_directory(logs.path() / "old-empty");
    writeFile(logs.path() / "old-full" / "inner.log", "i");
    fs::last_write_time(logs.path() / "young.log", now - 3 * 86400 - 3000);
    for (const char* name : {"old.log.gz", "old-empty", "old-full"})
        fs::last_write_time(logs.path() / name, now - 4 * 86400 - 60);

    Hv::removeOldLogs(logs.path());
    EXPECT_TRUE(fs::exists(logs.path() / "young.log"));
    EXPECT_FALSE(fs::exists(logs.path() / "old.log.gz"));
    EXPECT_FALSE(fs::exists(logs.path() / "old-empty"));
    EXPECT_TRUE(fs::exists(logs.path() / "old-full" / "inner.log"));
    EXPECT_NO_THROW(Hv::removeOldLogs(logs.path() / "missing"));
}

TEST(PlatformCopyDirectory, CopiesNestedFoldersAndLinksAndFailsOnWhatItCannotCopy)
{
    TemporaryFolder from;
    TemporaryFolder to;
    writeFile(from.path() / "top.txt", "top");
    writeFile(from.path() / "a" / "b" / "deep.txt", "deep");
    fs::create_symlink("a/b/deep.txt", from.path() / "link");
    fs::create_symlink("nowhere", from.path() / "a" / "dangling");
    writeFile(to.path() / "top.txt", "older and longer");

    ASSERT_TRUE(Hv::copyDirectory(from.path(), to.path()));
    EXPECT_EQ("top", readFile(to.path() / "top.txt"));
    EXPECT_EQ("deep", readFile(to.path() / "a" / "b" / "deep.txt"));
    EXPECT_EQ(fs::path("a/b/deep.txt"), fs::read_symlink(to.path() / "link"));
    EXPECT_EQ(fs::path("nowhere"), fs::read_symlink(to.path() / "a" / "dangling"));
    EXPECT_THROW(Hv::copyDirectory(from.path() / "missing", to.path()), fs::filesystem_error);

    LogCapture capture;
    // A bound socket cannot be copied, even by root; a folder cannot be made where a file is.
    TemporaryFolder odd;
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{AF_UNIX, {}};
    std::strncpy(address.sun_path, (odd.path() / "socket").c_str(), sizeof(address.sun_path) - 1);
    ASSERT_EQ(0, ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)));
    ::close(fd);
    EXPECT_FALSE(Hv::copyDirectory(odd.path(), to.path()));
    fs::remove(odd.path() / "socket");
    fs::create_directories(odd.path() / "a" / "b" / "c");
    writeFile(to.path() / "a" / "b" / "c", "a file");
    EXPECT_FALSE(Hv::copyDirectory(odd.path(), to.path()));
    EXPECT_EQ(2u, capture.messages(log4cplus::ERROR_LOG_LEVEL).size());
}

TEST(PlatformHideSecretInfo, MasksPasswordAndLicenseValues)
{
    const std::pair<std::string, std::string> cases[] = {
        {"{\"user\":\"bob\",\"password\":\"s3cr\\et\",\"engineLicense\":\"AB-12\"}",
         "{\"user\":\"bob\",\"password\":\"*\",\"engineLicense\":\"*\"}"},
        {"\"password\":\"\"", "\"password\":\"*\""},
        {"\"password\": \"abc\"", "\"password\": \"abc\""},
        {"\"Password\":\"abc\",\"passwords\":\"x\"", "\"Password\":\"abc\",\"passwords\":\"x\""},
        {"a\"password\":\"x1\"b\"password\":\"x2\"c", "a\"password\":\"*\"b\"password\":\"*\"c"},
    };
    for (const auto& [text, expected] : cases)
        EXPECT_EQ(expected, Hv::hideSecretInfo(text));
}

TEST(PlatformRunCommand, BuildsAndRunsTheShellLine)
{
    using Hv::PlatformDetail::commandLine;
    EXPECT_EQ("cd \"/tmp/x\"; ls > \"/tmp/x/out.txt\"", commandLine("ls", "/tmp/x/out.txt", "/tmp/x"));
    EXPECT_EQ("ls -l | wc", commandLine("ls -l | wc", "", ""));

    TemporaryFolder folder;
    fs::create_directory(folder.path() / "work dir");
    EXPECT_EQ(0, Hv::runCommand("pwd", folder.path() / "out.txt", folder.path() / "work dir"));
    EXPECT_EQ((folder.path() / "work dir").string() + "\n", readFile(folder.path() / "out.txt"));
    const int status = Hv::runCommand("exit 3", "", "");
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 3) << status;
}

TEST(PlatformProcessOwner, ReadsTheEffectiveUid)
{
    LogCapture capture;
    EXPECT_EQ(std::to_string(::geteuid()), Hv::processOwner(static_cast<uint32_t>(::getpid())));
    EXPECT_EQ("0", Hv::processOwner(1));
    // Larger than any pid_max the kernel accepts.
    EXPECT_EQ("", Hv::processOwner(0x7ffffff0u));
    EXPECT_EQ(1u, capture.count(log4cplus::INFO_LOG_LEVEL, "Unable to get process info for pid: 2147483632"));
    EXPECT_TRUE(capture.messages(log4cplus::ERROR_LOG_LEVEL).empty());

    using Hv::PlatformDetail::effectiveUidFromStatus;
    EXPECT_EQ("1001", effectiveUidFromStatus("Name:\tx\nUmask:\t0022\nUid:\t1000\t1001\t1000\t1000\nGid:\t5\t5\t5\t5\n"));
    for (const char* broken : {"Name:\tx\nGid:\t5\t5\t5\t5\n", "Uid:\t1000\n", "Uid:\t1000\tabc\n"})
        EXPECT_FALSE(effectiveUidFromStatus(broken)) << broken;
}

TEST(PlatformUniqueName, DiffersBetweenCalls)
{
    EXPECT_NE(Hv::uniqueName(), Hv::uniqueName());
}

TEST(PlatformLockDescriptor, ParksTheDescriptorOnDevNull)
{
    int ends[2];
    ASSERT_EQ(0, ::pipe(ends));
    const int kept = Hv::lockDescriptor(ends[1]);
    EXPECT_EQ(1, ::write(ends[1], "x", 1));
    EXPECT_EQ(1, ::write(kept, "y", 1));
    ::close(ends[1]);
    ::close(kept);
    char buffer[8] = {};
    EXPECT_EQ(1, ::read(ends[0], buffer, sizeof(buffer)));
    EXPECT_EQ('y', buffer[0]);
    ::close(ends[0]);
}

} // namespace
