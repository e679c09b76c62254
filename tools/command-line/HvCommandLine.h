#pragma once

// The command-line conventions shared by the tools: whole option names only, no stray words,
// --help and --version on stdout, a refusal as one line on stderr with exit status 2.

#include <boost/program_options.hpp>

#include <string>
#include <vector>

namespace Hv::CommandLine {

// Exit status for a command line that was refused.
inline constexpr int USAGE_ERROR = 2;

// Parses the arguments (without the program name) into `values` and returns the options in
// the order given, for tools where the order means something. Throws
// boost::program_options::error with a one-line reason.
std::vector<boost::program_options::option> parse(const std::vector<std::string>& arguments,
                                                  const boost::program_options::options_description& options,
                                                  boost::program_options::variables_map& values);

// "<tool> <version>", what --version prints.
std::string versionLine(const std::string& tool);

// Writes the reason as one line to stderr and returns USAGE_ERROR.
int refuse(const std::string& tool, const std::string& reason);

} // namespace Hv::CommandLine
