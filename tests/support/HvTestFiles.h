#pragma once

#include <boost/filesystem/path.hpp>

#include <string>

namespace Hv::Test {

// The whole content of a file, byte for byte ("" when it cannot be read).
std::string readFile(const boost::filesystem::path& path);
// Writes a file, creating its missing parent folders.
void writeFile(const boost::filesystem::path& path, const std::string& text);
// What a shell command writes to its standard output.
std::string commandOutput(const std::string& command);

} // namespace Hv::Test
