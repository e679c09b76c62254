#include "HvPlatform.h"
#include "HvTestSupport.h"

#include "HvLogCapture.h"

#include <gtest/gtest.h>

#include <boost/filesystem/operations.hpp>

#include <signal.h>

#include <cstdio>
#include <tuple>

namespace fs = boost::filesystem;
using namespace Hv::Test;

namespace {

TEST(PlatformRemoveOldLogs, RemovesOnlyEntriesOlderThanFourDays)
{
    TemporaryFolder logs;
    writeFile(logs.path() / "young.log", "y");
    writeFile(logs.path() / "old.log.gz", "o");
    writeFile(logs.path() / "old-full" / "inner.log", "i");
    fs::last_write_time(logs.path() / "young.log", std::time(nullptr) - 3 * 86400 - 3000);
    for (const char* name : {"old.log.gz", "old-full"})
        fs::last_write_time(logs.path() / name, std::time(nullptr) - 4 * 86400 - 60);

    Hv::removeOldLogs(logs.path());
    EXPECT_TRUE(fs::exists(logs.path() / "young.log"));
    EXPECT_FALSE(fs::exists(logs.path() / "old.log.gz"));
    EXPECT_TRUE(fs::exists(logs.path() / "old-full" / "inner.log"));
}

TEST(PlatformHideSecretInfo, MasksPasswordAndLicenseValues)
{
    const std::pair<std::string, std::string> cases[] = {
        {"{\"user\":\"bob\",\"password\":\"s3cr\\et\",\"engineLicense\":\"AB-12\"}",
         "{\"user\":\"bob\",\"password\":\"*\",\"engineLicense\":\"*\"}"},
        {"\"password\":\"\"", "\"password\":\"*\""},
        {"\"Password\":\"abc\",\"passwords\":\"x\"", "\"Password\":\"abc\",\"passwords\":\"x\""},
        {"a\"password\":\"x1\"b\"password\":\"x2\"c", "a\"password\":\"*\"b\"password\":\"*\"c"},
    };
    for (const auto& [text, expected] : cases)
        EXPECT_EQ(expected, Hv::hideSecretInfo(text));
}

TEST(PlatformUniqueName, DiffersBetweenCalls)
{
    EXPECT_NE(Hv::uniqueName(), Hv::uniqueName());
}

TEST(PlatformRunProgram, ReturnsTheStatusAndWritesTheOutputWhereAsked)
{
    TemporaryFolder folder;
    const fs::path work = folder.path() / "work \"$dir\"", file = folder.path() / "out", missing = folder.path() / "missing";
    fs::create_directory(work);
    // Arguments, working directory, status, what the output file holds, the error logged.
    const std::tuple<std::vector<std::string>, fs::path, int, std::string, std::string> cases[] = {
        {{"pwd"}, work, 0, work.string() + "\n", ""},
        {{"sh", "-c", "kill -TERM $$"}, "", 128 + SIGTERM, "", ""},
        {{"hv-no-such-program"}, "", 127, "", "Unable to start hv-no-such-program in the current folder"},
        {{"pwd"}, missing, 127, "", "Unable to start pwd in " + missing.string()},
    };
    LogCapture capture;
    for (const auto& [arguments, directory, status, output, logged] : cases) {
        fs::remove(file);
        EXPECT_EQ(Hv::runProgram(arguments, file, directory), status) << arguments.back();
        EXPECT_EQ(readFile(file), output);
        EXPECT_EQ(capture.messages(log4cplus::ERROR_LOG_LEVEL).size(), logged.empty() ? 0u : 1u);
        EXPECT_EQ(capture.count(log4cplus::ERROR_LOG_LEVEL, logged), logged.empty() ? 0u : 1u);
        capture.clear();
    }
    // Without a file the output goes to standard error; the arguments reach the program as they are.
    inFreshProcess([&] {
        ASSERT_TRUE(std::freopen(file.c_str(), "w", stderr));
        EXPECT_EQ(Hv::runProgram({"sh", "-c", "echo \"$0\"; exit 3", "a $b \"c\""}, "", ""), 3);
    });
    EXPECT_EQ(readFile(file), "a $b \"c\"\n");
}

} // namespace
