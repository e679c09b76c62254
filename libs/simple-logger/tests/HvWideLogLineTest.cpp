// Built with UNICODE: log4cplus's wide-character interface, as the macOS build has it. Only the
// header parts of the logger take part, since this build's log4cplus library is the narrow one.

#include "HvTrace.h"

#include <gtest/gtest.h>

#include <boost/system/error_code.hpp>

#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

static_assert(std::is_same_v<log4cplus::tchar, wchar_t>, "the wide interface of log4cplus");

// A caller whose namespace has an operator<< of its own, which hides every one declared further out.
namespace Caller {
struct Own {};
log4cplus::tostream& operator<<(log4cplus::tostream& os, Own)
{
    return os << LOG4CPLUS_TEXT("own");
}

log4cplus::tstring mixed(const std::string& name)
{
    Hv::Log::Line line;
    line << "name " << name << LOG4CPLUS_TEXT(", pid ") << 42 << ", " << Own{} << ", "
         << boost::system::error_code(2, boost::system::system_category());
    return line.str();
}
} // namespace Caller

namespace {

TEST(WideLogLine, WidensEveryByteOfNarrowTextToTheCharacterOfThatNumber)
{
    // Bytes above 0x7f must not turn negative on the way: char is signed here.
    Hv::Log::Line line;
    line << std::string("caf\xe9\0!", 6) << std::string_view("\x7f\x80") << "\xff";
    const std::wstring expected{L'c', L'a', L'f', wchar_t(0xe9), L'\0', L'!', wchar_t(0x7f), wchar_t(0x80),
                                wchar_t(0xff)};
    EXPECT_EQ(line.str(), expected);
}

TEST(WideLogLine, TakesNarrowAndWideTextAndValuesFromACallerWithOperatorsOfItsOwn)
{
    EXPECT_EQ(Caller::mixed("tray"), L"name tray, pid 42, own, system:2");
}

TEST(WideLogLine, TraceArgumentsWidenTheirNamesAndText)
{
    Hv::Log::Line line;
    const std::string channel = "tr\xe4y";
    Hv::Log::writeArguments(line.stream(), Hv::Log::named("channel", channel),
                            Hv::Log::named("markers", std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(line.str(), std::wstring(L"channel = tr") + wchar_t(0xe4) + L"y, markers = [a, b]");
}

} // namespace
