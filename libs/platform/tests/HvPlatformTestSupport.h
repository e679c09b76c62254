#pragma once

#include <boost/filesystem/path.hpp>

#include <functional>
#include <string>

namespace Hv::Test {

// A fresh folder under /tmp, removed with everything in it at the end of the scope.
class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const boost::filesystem::path& path() const { return m_path; }

private:
    boost::filesystem::path m_path;
};

void writeFile(const boost::filesystem::path& file, const std::string& text);
std::string readFile(const boost::filesystem::path& file);

// Runs `scenario` in a newly started copy of the test executable, so that the directory getters,
// which keep their first answer for the life of a process, start empty. The scenario's gtest
// failures fail the calling test.
void expectInFreshProcess(const std::function<void()>& scenario);

} // namespace Hv::Test
