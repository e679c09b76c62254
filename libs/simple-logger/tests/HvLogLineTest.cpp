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

// Each byte as the character of that number, as the log file shows it.
log4cplus::tstring widened(std::string_view bytes)
{
    log4cplus::tstring text;
    for (unsigned char c : bytes)
        text += static_cast<log4cplus::tchar>(c);
    return text;
}

log4cplus::tstring address(const void* pointer)
{
    log4cplus::tostringstream text;
    text << pointer;
    return text.str();
}

TEST(LogLine, FindsEachValuesOperatorFromACallerWithOperatorsOfItsOwn)
{
    EXPECT_EQ(Caller::mixed(), LOG4CPLUS_TEXT("name tray, pid 42, own, system:2"));
}

TEST(LogLine, KeepsEveryByteOfNarrowText)
{
    // Bytes above 0x7f must not turn negative on the way (char is signed here); zero bytes stay.
    Hv::Log::Line line;
    line << std::string("caf\xe9\0!", 6) << std::string_view("\x7f\x80") << "\xff";
    EXPECT_EQ(line.str(), widened(std::string_view("caf\xe9\0!\x7f\x80\xff", 9)));
}

TEST(LogLine, TraceArgumentsPrintEachKindOfValue)
{
    int other = 0;
    const auto shared = std::make_shared<int>(5);
    const std::string text = "tr\xe4y";
    Hv::Log::Line line;
    Hv::Log::writeArguments(line.stream(), Hv::Log::named("raw", &other), Hv::Log::named("shared", shared),
                            Hv::Log::named("text", text),
                            Hv::Log::named("markers", std::vector<std::string>{"a", "b"}),
                            Hv::Log::named("error", boost::system::error_code(2, boost::system::system_category())),
                            Hv::Log::named("flag", true), Hv::Log::named("byte", static_cast<unsigned char>(7)));
    EXPECT_EQ(line.str(), LOG4CPLUS_TEXT("raw = ") + address(&other) + LOG4CPLUS_TEXT(", shared = ") +
                              address(shared.get()) + LOG4CPLUS_TEXT(", text = ") + widened(text) +
                              LOG4CPLUS_TEXT(", markers = [a, b], error = system:2, flag = 1, byte = 7"));
}

} // namespace
