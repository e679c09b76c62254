#include "HvTestSupport.h"
#include "HvLogCapture.h"

#include <gtest/gtest.h>

#include <boost/filesystem/operations.hpp>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace Hv::Test {

boost::filesystem::path makeTemporaryFolder(const std::string& prefix)
{
    // Under $TMPDIR, which CTest points at the run's own folder.
    std::string pattern = (boost::filesystem::temp_directory_path() / (prefix + "-XXXXXX")).string();
    if (::mkdtemp(pattern.data()) == nullptr)
        throw std::runtime_error("cannot create a temporary folder " + pattern);
    return pattern;
}

TemporaryFolder::TemporaryFolder()
    : m_path(makeTemporaryFolder("hv-test"))
{
}

TemporaryFolder::~TemporaryFolder()
{
    boost::system::error_code ignored;
    boost::filesystem::remove_all(m_path, ignored);
}

std::string readFile(const boost::filesystem::path& path)
{
    std::ifstream in(path.string(), std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void writeFile(const boost::filesystem::path& path, const std::string& text)
{
    if (path.has_parent_path())
        boost::filesystem::create_directories(path.parent_path());
    std::ofstream out(path.string(), std::ios::binary);
    out << text;
    if (!out)
        throw std::runtime_error("cannot write " + path.string());
}

std::vector<std::string> splitLines(const std::string& text)
{
    std::vector<std::string> lines;
    std::size_t start = 0;
    for (std::size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1)
        lines.push_back(text.substr(start, end - start));
    return lines;
}

std::string commandOutput(const std::string& command)
{
    std::string output;
    if (FILE* const pipe = popen(command.c_str(), "r")) {
        char buffer[4096];
        while (const std::size_t got = std::fread(buffer, 1, sizeof(buffer), pipe))
            output.append(buffer, got);
        pclose(pipe);
    }
    return output;
}

pid_t inFreshProcess(const std::function<void()>& body)
{
    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        body();
        std::fflush(nullptr);
        releaseLogFolder(false);
        _exit(::testing::Test::HasFailure() ? 1 : 0);
    }
    int status = -1;
    EXPECT_TRUE(pid > 0 && waitpid(pid, &status, 0) == pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "child status " << status;
    return pid;
}

Process::Process(const std::function<void()>& body)
{
    std::fflush(nullptr);
    m_pid = fork();
    if (m_pid == 0) {
        body();
        releaseLogFolder(false);
        _exit(0);
    }
}

Process::~Process()
{
    if (m_pid > 0 && !m_status)
        kill();
}

std::optional<int> Process::poll()
{
    int status = 0;
    if (!m_status && m_pid > 0 && ::waitpid(m_pid, &status, WNOHANG) == m_pid)
        m_status = status;
    return m_status;
}

void Process::kill()
{
    ::kill(m_pid, SIGKILL);
    m_status.emplace();
    ::waitpid(m_pid, &*m_status, 0);
}

} // namespace Hv::Test
