#include "HvCommandLine.h"

#include "HvVersion.h"

#include <algorithm>
#include <iostream>

namespace Hv::CommandLine {

namespace po = boost::program_options;

namespace {

// Collects the words that are no option so that the refusal can name them.
constexpr const char* STRAY = "hv-stray-argument";

} // namespace

std::vector<po::option> parse(const std::vector<std::string>& arguments, const po::options_description& options,
                              po::variables_map& values)
{
    po::options_description all;
    all.add(options);
    all.add_options()(STRAY, po::value<std::vector<std::string>>());
    po::positional_options_description positional;
    positional.add(STRAY, -1);

    // Guessing would take "--stat" for "--status"; a script that says what it means is safer.
    const int style = po::command_line_style::default_style & ~po::command_line_style::allow_guessing;
    const po::parsed_options parsed =
        po::command_line_parser(arguments).options(all).positional(positional).style(style).run();
    for (const po::option& option : parsed.options) {
        if (option.string_key == STRAY)
            throw po::error("unexpected argument '" + option.value.front() + "'");
    }
    po::store(parsed, values);
    po::notify(values);
    return parsed.options;
}

std::string versionLine(const std::string& tool)
{
    return tool + " " + PRODUCT_VERSION;
}

int refuse(const std::string& tool, const std::string& reason)
{
    // A value may carry a line break; the refusal stays on one line.
    std::string line = reason;
    std::replace(line.begin(), line.end(), '\n', ' ');
    std::cerr << tool << ": " << line << " (see " << tool << " --help)\n";
    return USAGE_ERROR;
}

} // namespace Hv::CommandLine
