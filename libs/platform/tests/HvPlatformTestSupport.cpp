#include "HvPlatformTestSupport.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <boost/filesystem/operations.hpp>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace fs = boost::filesystem;

namespace Hv::Test {

TemporaryFolder::TemporaryFolder()
{
    char pattern[] = "/tmp/hv-platform-test-XXXXXX";
    if (::mkdtemp(pattern) == nullptr)
        throw std::runtime_error("cannot create a temporary folder");
    m_path = pattern;
}

TemporaryFolder::~TemporaryFolder()
{
    boost::system::error_code error;
    fs::remove_all(m_path, error);
}

void writeFile(const fs::path& file, const std::string& text)
{
    std::ofstream stream(file.string(), std::ios::binary);
    stream << text;
    if (!stream)
        throw std::runtime_error("cannot write " + file.string());
}

std::string readFile(const fs::path& file)
{
    std::ifstream stream(file.string(), std::ios::binary);
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}

void expectInFreshProcess(const std::function<void()>& scenario)
{
    // "threadsafe" re-executes the binary for the child instead of forking this process.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            // The child's own result printer is silenced: collect its failures and print them on
            // the standard output it shares with the parent.
            ::testing::TestPartResultArray results;
            {
                ::testing::ScopedFakeTestPartResultReporter reporter(
                    ::testing::ScopedFakeTestPartResultReporter::INTERCEPT_ALL_THREADS, &results);
                scenario();
            }
            bool failed = false;
            for (int i = 0; i < results.size(); ++i) {
                const ::testing::TestPartResult& result = results.GetTestPartResult(i);
                failed = failed || result.failed();
                std::fprintf(stdout, "%s:%d: %s\n", result.file_name() ? result.file_name() : "?",
                             result.line_number(), result.message());
            }
            std::fflush(nullptr);
            std::_Exit(failed ? 1 : 0);
        },
        ::testing::ExitedWithCode(0), "");
}

} // namespace Hv::Test
