#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <map>
#include <sstream>
#include <string>

extern char** environ;

namespace {

enum class Input { Pipe, DevNull, Closed };

// Reads from fd until `done` says so, the writer closes, or the time is up.
std::string readUntil(int fd, const std::function<bool(const std::string&)>& done, std::chrono::milliseconds limit)
{
    std::string text;
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!done(text)) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0)
            break;
        pollfd watched{fd, POLLIN, 0};
        if (::poll(&watched, 1, static_cast<int>(left.count())) <= 0)
            break;
        char buffer[512];
        const ssize_t size = ::read(fd, buffer, sizeof(buffer));
        if (size <= 0)
            break;
        text.append(buffer, static_cast<std::size_t>(size));
    }
    return text;
}

std::map<std::string, std::string> parseReport(const std::string& line)
{
    std::map<std::string, std::string> fields;
    std::istringstream words(line);
    std::string word;
    while (words >> word) {
        const auto equals = word.find('=');
        if (equals != std::string::npos)
            fields[word.substr(0, equals)] = word.substr(equals + 1);
    }
    return fields;
}

// Starts the child with the given standard input, lets the parent "go away" by closing the
// input's write end, and returns the child's report.
std::map<std::string, std::string> runChild(Input input)
{
    int stdinPipe[2], outputPipe[2], reportPipe[2];
    for (int* ends : {stdinPipe, outputPipe, reportPipe}) {
        if (pipe(ends) != 0)
            return {};
        // Clear of 0 to 3, the child's targets; close-on-exec leaves the child only its targets.
        for (int i = 0; i < 2; ++i) {
            const int moved = ::fcntl(ends[i], F_DUPFD_CLOEXEC, 10);
            ::close(ends[i]);
            ends[i] = moved;
        }
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (input == Input::Pipe)
        posix_spawn_file_actions_adddup2(&actions, stdinPipe[0], 0);
    else if (input == Input::DevNull)
        posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    else
        posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, outputPipe[1], 1);
    posix_spawn_file_actions_adddup2(&actions, outputPipe[1], 2);
    posix_spawn_file_actions_adddup2(&actions, reportPipe[1], 3);
    // A closed input is closed by the child itself, once the descriptors that it needs for
    // logging are open: otherwise the first of them would be given the number 0.
    char closeInput[] = "--close-input";
    char* argv[] = {const_cast<char*>(HV_PARENT_PIPE_CHILD), input == Input::Closed ? closeInput : nullptr, nullptr};
    pid_t child = -1;
    const int spawned = posix_spawn(&child, argv[0], &actions, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(stdinPipe[0]);
    ::close(outputPipe[1]);
    ::close(reportPipe[1]);
    if (spawned != 0)
        return {};

    const auto hasLine = [](const std::string& text) { return text.find('\n') != std::string::npos; };
    std::string text = readUntil(reportPipe[0], hasLine, std::chrono::seconds(10));
    // The parent goes away.
    ::close(stdinPipe[1]);
    text += readUntil(reportPipe[0], [](const std::string&) { return false; }, std::chrono::seconds(15));
    int status = 0;
    for (int i = 0; i < 100 && ::waitpid(child, &status, WNOHANG) == 0; ++i)
        readUntil(outputPipe[0], [](const std::string&) { return false; }, std::chrono::milliseconds(50));
    if (::waitpid(child, &status, WNOHANG) == 0) {
        ::kill(child, SIGKILL);
        ::waitpid(child, &status, 0);
    }
    ::close(outputPipe[0]);
    ::close(reportPipe[0]);
    auto fields = parseReport(text.substr(text.find('\n') + 1));
    fields["ready"] = text.rfind("ready\n", 0) == 0 ? "1" : "0";
    fields["exit"] = WIFEXITED(status) ? std::to_string(WEXITSTATUS(status)) : "signal";
    return fields;
}

TEST(ParentProcessPipeTest, ParentClosingInputStopsAllStreamsAndNotifiesOnce)
{
    auto report = runChild(Input::Pipe);
    EXPECT_EQ(report["ready"], "1");
    EXPECT_EQ(report["exit"], "0");
    EXPECT_EQ(report["failed"], "1");
    EXPECT_EQ(report["calls"], "1");
    EXPECT_EQ(report["lateCalls"], "0");
    EXPECT_EQ(report["reads"], "0");
    EXPECT_EQ(report["in"], "0");
    EXPECT_EQ(report["out"], "0");
    EXPECT_EQ(report["error"], "0");
    EXPECT_EQ(report["disabledAtCall"], "1");
    EXPECT_EQ(report["errorsAtCall"], "1");
    EXPECT_EQ(report["assign"], "0");
    EXPECT_EQ(report["lengthError"], "1");
    const std::string pid = report["pid"];
    EXPECT_EQ(report["names"], "in-" + pid + ",out-" + pid + ",error-" + pid);
}

TEST(ParentProcessPipeTest, ClosedInputIsAnAssignmentErrorAndTheFirstReadFails)
{
    auto report = runChild(Input::Closed);
    EXPECT_EQ(report["exit"], "0");
    EXPECT_EQ(report["assign"], "1");
    EXPECT_EQ(report["calls"], "1");
    EXPECT_EQ(report["reads"], "0");
    EXPECT_EQ(report["in"], "0");
}

TEST(ParentProcessPipeTest, InputOnDevNullEndsAtTheFirstRead)
{
    // The reactor takes /dev/null without complaint (it cannot wait on it); the first read
    // meets end of file at once.
    auto report = runChild(Input::DevNull);
    EXPECT_EQ(report["exit"], "0");
    EXPECT_EQ(report["calls"], "1");
    EXPECT_EQ(report["lengthError"], "1");
    EXPECT_EQ(report["reads"], "0");
    EXPECT_EQ(report["out"], "0");
}

} // namespace
