#include "HvTestFiles.h"

#include <boost/filesystem/operations.hpp>

#include <cstdio>
#include <fstream>
#include <iterator>

namespace Hv::Test {

std::string readFile(const boost::filesystem::path& path)
{
    std::ifstream in(path.string(), std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void writeFile(const boost::filesystem::path& path, const std::string& text)
{
    if (path.has_parent_path())
        boost::filesystem::create_directories(path.parent_path());
    std::ofstream(path.string(), std::ios::binary) << text;
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

} // namespace Hv::Test
