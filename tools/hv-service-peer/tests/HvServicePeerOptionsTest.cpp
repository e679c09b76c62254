#include "HvServicePeerOptions.h"

#include <gtest/gtest.h>

namespace {

using Hv::ServicePeer::parseArguments;

TEST(ServicePeerOptionsTest, RefusesBadArguments)
{
    // Arguments, and a piece of the one-line reason.
    const std::vector<std::pair<std::vector<std::string>, std::string>> refused = {
        {{}, "nothing to send"},
        {{"--channel", "A", "--status", "Connected,Success"}, "--channel must be followed by --body"},
        {{"--channel", "", "--body", "x"}, "empty channel"},
        {{"--body", "x"}, "--body must follow --channel"},
        {{"--status", "Connected,Success", "--timeout-ms", "0"}, "('0') for option '--timeout-ms' is invalid"},
        {{"--status", "Connected,Success", "--pipe", "../x"}, "invalid pipe name '../x'"},
        // Whole names only: no guessing of abbreviations. (Stray words and option values are the
        // command-line test's, on the other tool.)
        {{"--stat", "Connected,Success"}, "unrecognised option '--stat'"},
        {{"--status", "Connected,Success", "--cycle"}, "--cycle needs messages and a --delay-ms"},
        {{"--status", "Connected,Success", "--stop-after-ms", "100"}, "--stop-after-ms needs --spawn or --cycle"},
        {{"--spawn", ""}, "--spawn needs the program"},
        // A syntax error wins over help: the command line is wrong whatever was asked.
        {{"--help", "--frobnicate"}, "unrecognised option '--frobnicate'"},
    };
    for (const auto& [arguments, reason] : refused) {
        const auto parsed = parseArguments(arguments);
        EXPECT_FALSE(parsed.options) << ::testing::PrintToString(arguments);
        EXPECT_NE(parsed.error.find(reason), std::string::npos) << ::testing::PrintToString(arguments) << ": " << parsed.error;
    }
}

} // namespace
