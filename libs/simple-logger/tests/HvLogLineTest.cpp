// Built twice: against log4cplus's narrow interface, and with UNICODE against its wide one, which
// the macOS build uses. Header parts of the logger only.

#include "HvTrace.h"

#include <gtest/gtest.h>

#include <boost/system/error_code.hpp>

#include <string>
#include <string_view>
#include <vector>

// A caller whose namespace has an operator<< of its own, which hides every one declared further out.
namespace Caller {
struct Own {};
log4cplus::tostream& operator<<(log4cplus::tostream& os, Own)
{
    return os << LOG4CPLUS_TEXT("own");
}

log4cplus::tstring mixed()
{
    Hv::Log::Line line;
    line << "name " << std::string("tray") << LOG4CPLUS_TEXT(", pid ") << 42 << ", " << Own{} << ", "
         << boost::system::error_code(2, boost::system::system_category());
    return line.str();
}
} // namespace Caller

namespace {

TEST(LogLine, FindsEachValuesOperatorKeepsEveryByteOfNarrowTextAndPrintsEachKindOfTraceArgument)
{
    EXPECT_EQ(Caller::mixed(), LOG4CPLUS_TEXT("name tray, pid 42, own, system:2"));
    // Each byte becomes the character of that number: bytes above 0x7f must not turn negative on
    // the way (char is signed here), zero bytes stay.
    Hv::Log::Line line;
    line << std::string("caf\xe9\0!", 6) << std::string_view("\x7f\x80") << "\xff";
    EXPECT_EQ(line.str(), log4cplus::tstring(LOG4CPLUS_TEXT("caf\xe9\0!\x7f\x80\xff"), 9));

    Hv::Log::Line trace;
    Hv::Log::writeArguments(trace.stream(), Hv::Log::named("text", std::string("tr\xe4y")),
                            Hv::Log::named("markers", std::vector<std::string>{"a", "b"}),
                            Hv::Log::named("flag", true), Hv::Log::named("byte", static_cast<unsigned char>(7)));
    EXPECT_EQ(trace.str(), LOG4CPLUS_TEXT("text = tr\xe4y, markers = [a, b], flag = 1, byte = 7"));
}

} // namespace
