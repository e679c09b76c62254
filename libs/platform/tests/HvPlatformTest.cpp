#include "HvPlatform.h"
#include "HvTestSupport.h"

#include "HvLogCapture.h"

#include <gtest/gtest.h>

#include <boost/filesystem/operations.hpp>

#include <pwd.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#include <tuple>

namespace fs = boost::filesystem;
using namespace Hv::Test;

namespace {

const char* const VARIABLES[] = {"HOME", "TMPDIR", "XDG_DATA_HOME", "XDG_CONFIG_HOME", "HV_SOFTPHONE_LOG_DIR"};

struct Case {
    // In values, paths and the answer "~" stands for the case's home folder; a null value unsets the variable.
    std::vector<std::pair<const char*, const char*>> environment;
    std::pair<std::string, std::string> file; // path and content, when there is one
    const fs::path& (*getter)();
    std::string expected;
};

std::string home(std::string text, const fs::path& folder)
{
    for (std::size_t at = 0; (at = text.find('~', at)) != std::string::npos; at += folder.size())
        text.replace(at, 1, folder.string());
    return text;
}

TEST(PlatformDirectories, FollowTheEnvironmentAndKeepTheFirstAnswer)
{
    const std::string logs = "/Halvo/HalvoSoftphone-10.0/logs";
    // The last usable assignment wins, as when a shell sources the file.
    const std::string userDirs = "XDG_DOWNLOAD_DIR=\"$HOME/A\"\n  XDG_DOWNLOAD_DIR=\"$HOME/T\xc3\xa9l\xc3\xa9\x63harg \\\"b\\\"\"  \r\n"
                                 "# XDG_DOWNLOAD_DIR=\"$HOME/x\"\nXDG_DOWNLOAD_DIR=$HOME/x\nXDG_DOWNLOAD_DIR=\"relative\"\n"
                                 "XDG_DOWNLOAD_DIR=\"$HOMEX/y\"\nXDG_MUSIC_DIR=\"$HOME/Music\"\n";
    const Case cases[] = {
        {{}, {}, Hv::logsDirectory, "~/.local/share" + logs},
        {{{"XDG_DATA_HOME", "~/data"}}, {}, Hv::logsDirectory, "~/data" + logs},
        {{{"XDG_DATA_HOME", "data"}}, {}, Hv::appDataDirectory, "~/.local/share"}, // must be absolute
        {{{"HV_SOFTPHONE_LOG_DIR", "relative/logs"}}, {}, Hv::logsDirectory, "relative/logs"},
        {{{"HV_SOFTPHONE_LOG_DIR", ""}}, {}, Hv::logsDirectory, "~/.local/share" + logs},
        // Never a shared folder: the home of the password entry.
        {{{"HOME", nullptr}}, {}, Hv::logsDirectory, ::getpwuid(::geteuid())->pw_dir + std::string("/.local/share") + logs},
        {{{"HOME", nullptr}, {"TMPDIR", "~/missing"}}, {}, Hv::downloadsDirectory, "/tmp"},
        {{}, {"~/.config/user-dirs.dirs", userDirs}, Hv::downloadsDirectory, "~/T\xc3\xa9l\xc3\xa9\x63harg \"b\""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.expected);
        // The getters keep their first answer for the life of the process: a fresh one each.
        inFreshProcess([&] {
            TemporaryFolder folder;
            for (const char* name : VARIABLES)
                ::unsetenv(name);
            ::setenv("HOME", folder.path().c_str(), 1);
            for (const auto& [name, value] : c.environment)
                value ? ::setenv(name, home(value, folder.path()).c_str(), 1) : ::unsetenv(name);
            if (!c.file.first.empty())
                writeFile(home(c.file.first, folder.path()), c.file.second);

            const std::string first = c.getter().string();
            EXPECT_EQ(first, home(c.expected, folder.path()));
            EXPECT_FALSE(fs::exists(folder.path() / ".local")) << "created by asking";
            fs::remove_all(folder.path());
            for (const char* name : VARIABLES)
                ::setenv(name, "/elsewhere", 1);
            EXPECT_EQ(c.getter().string(), first);
        });
    }
}

TEST(PlatformDirectories, TwoThreadsAskingFirstGetTheSameAnswers)
{
    for (int run = 0; run < 20; ++run)
        inFreshProcess([] {
            // Long enough for the paths to live on the heap, where a torn write shows.
            ::setenv("HOME", "/home/a-home-folder-with-a-name-long-enough-for-the-heap", 1);
            std::atomic<int> waiting{2};
            const auto ask = [&waiting](std::vector<std::string>* into) {
                for (--waiting; waiting > 0;) {
                }
                for (const auto getter : {Hv::appDataDirectory, Hv::localAppDataDirectory, Hv::halvoDirectory, Hv::localHalvoDirectory,
                                          Hv::localProductDirectory, Hv::logsDirectory, Hv::binDirectory, Hv::installationDirectory,
                                          Hv::tempDirectory, Hv::downloadsDirectory})
                    into->push_back(getter().string());
            };
            std::vector<std::string> answers[2];
            std::thread other(ask, &answers[1]);
            ask(&answers[0]);
            other.join();
            EXPECT_EQ(answers[0], answers[1]);
        });
}

TEST(PlatformRemoveOldLogs, RemovesOnlyEntriesOlderThanFourDays)
{
    TemporaryFolder logs;
    writeFile(logs.path() / "young.log", "y");
    writeFile(logs.path() / "old.log.gz", "o");
    fs::last_write_time(logs.path() / "young.log", std::time(nullptr) - 3 * 86400 - 3000);
    fs::last_write_time(logs.path() / "old.log.gz", std::time(nullptr) - 4 * 86400 - 60);

    Hv::removeOldLogs(logs.path());
    EXPECT_TRUE(fs::exists(logs.path() / "young.log"));
    EXPECT_FALSE(fs::exists(logs.path() / "old.log.gz"));
}

TEST(PlatformHideSecretInfo, MasksPasswordAndLicenseValuesOfAnyLength)
{
    const std::pair<std::string, std::string> cases[] = {
        {"\"Password\":\"abc\",\"passwords\":\"x\",\"password\": \"y\"", "\"Password\":\"abc\",\"passwords\":\"x\",\"password\": \"y\""},
        // A value ends at its first quote, escaped or not; that quote cannot start the next key.
        {"\"password\":\"a\\\"password\":\"cd\"", "\"password\":\"*\"password\":\"cd\""},
        // A value cut short by the end of its line is masked up to there (by the end of the text: below).
        {"\"password\":\"ab\r\ncd\"password\":\"ef\"", "\"password\":\"*\r\ncd\"password\":\"*\""},
    };
    for (const auto& [text, expected] : cases)
        EXPECT_EQ(Hv::hideSecretInfo(text), expected) << text;

    // A whole frame's worth of secret, closed and open: one pass, no recursion per character.
    constexpr std::size_t FRAME_BYTES = 64u << 20;
    const std::string key = "{\"password\":\"", tail = "\",\"user\":\"bob\"}";
    std::string text = key + std::string(FRAME_BYTES - key.size() - tail.size(), 's') + tail;
    EXPECT_EQ(Hv::hideSecretInfo(text), key + "*" + tail);
    text.resize(FRAME_BYTES - tail.size());
    EXPECT_EQ(Hv::hideSecretInfo(text), key + "*");
}

TEST(PlatformRunProgram, ReturnsTheStatusAndWritesTheOutputWhereAsked)
{
    TemporaryFolder folder;
    const fs::path work = folder.path() / "work \"$dir\"", file = folder.path() / "out", missing = folder.path() / "missing";
    fs::create_directory(work);
    // Arguments, working directory, status, what the output file holds, the error logged.
    const std::tuple<std::vector<std::string>, fs::path, int, std::string, std::vector<std::string>> cases[] = {
        {{"pwd"}, work, 0, work.string() + "\n", {}},
        {{"sh", "-c", "kill -TERM $$"}, "", 128 + SIGTERM, "", {}},
        {{"hv-no-such-program"}, "", 127, "", {"Unable to start hv-no-such-program in the current folder: No such file or directory"}},
        {{"pwd"}, missing, 127, "", {"Unable to start pwd in " + missing.string() + ": No such file or directory"}},
        // The arguments reach the program as they are, with no shell in between.
        {{"sh", "-c", "echo \"$0\"; exit 3", "a $b \"c\""}, "", 3, "a $b \"c\"\n", {}},
    };
    LogCapture capture;
    for (const auto& [arguments, directory, status, output, logged] : cases) {
        fs::remove(file);
        EXPECT_EQ(Hv::runProgram(arguments, file, directory), status) << arguments.front();
        EXPECT_EQ(readFile(file), output);
        EXPECT_EQ(capture.messages(log4cplus::ERROR_LOG_LEVEL), logged);
        capture.clear();
    }
}

} // namespace
