#include "HvLogCapture.h"
#include "HvTrace.h"

#include <gtest/gtest.h>

#include <boost/system/error_code.hpp>

#include <functional>
#include <iomanip>
#include <sstream>
#include <string_view>
#include <vector>

namespace Elsewhere {
struct Port {
    int number;
};
log4cplus::tostream& operator<<(log4cplus::tostream& os, const Port& port)
{
    return os << LOG4CPLUS_TEXT("port ") << port.number;
}
} // namespace Elsewhere

// A caller whose namespace has an operator<< of its own, which hides every one declared further out.
namespace Caller {
struct Own {};
log4cplus::tostream& operator<<(log4cplus::tostream& os, Own)
{
    return os << LOG4CPLUS_TEXT("own");
}

void logMixed(const std::string& name)
{
    HV_LOG_WARN("name " << name << ", " << Elsewhere::Port{8} << ", " << Own{} << ", "
                        << boost::system::error_code(2, boost::system::system_category()));
}
} // namespace Caller

namespace {

std::string address(const void* pointer)
{
    std::ostringstream text;
    text << pointer;
    return text.str();
}

struct Traced {
    std::string name() const { return "x"; }

    int run(int count, const int* raw, const std::shared_ptr<int>& shared, const std::string& text,
            const std::vector<std::string>& markers, const boost::system::error_code& error,
            const std::function<void()>& callback)
    {
        HV_TRACE(count, raw, shared, text, markers, error, (callback == nullptr), this->name());
        return __LINE__ - 1;
    }

    void none() { HV_TRACE(); }
};

TEST(Trace, WritesNamesAndValuesWithCallerPosition)
{
    Hv::Test::LogCapture capture;
    Traced traced;
    auto shared = std::make_shared<int>(5);
    int other = 0;
    const int line = traced.run(3, &other, shared, "tray", {"a", "b"},
                                boost::system::error_code(2, boost::system::system_category()), nullptr);
    traced.none();
    HV_TRACE_FREE();

    // Only this file's lines: the logger's header and its cleaning thread log as well.
    std::vector<Hv::Test::LogLine> lines;
    for (const Hv::Test::LogLine& line : capture.lines())
        if (line.file == __FILE__)
            lines.push_back(line);
    ASSERT_EQ(lines.size(), 3u) << (lines.empty() ? "" : lines[0].message + " / " + lines.back().message);
    EXPECT_EQ(lines[0].level, log4cplus::TRACE_LOG_LEVEL);
    EXPECT_EQ(lines[0].message, "[this = " + address(&traced) + "] -> (count = 3, raw = " + address(&other) +
                                    ", shared = " + address(shared.get()) +
                                    ", text = tray, markers = [a, b], error = system:2, (callback == nullptr) = 1, "
                                    "this->name() = x)");
    EXPECT_EQ(lines[0].file, __FILE__);
    EXPECT_EQ(lines[0].line, line);
    EXPECT_NE(lines[0].function.find("Traced::run("), std::string::npos) << lines[0].function;
    EXPECT_EQ(lines[1].message, "[this = " + address(&traced) + "] -> ()");
    EXPECT_EQ(lines[2].message, "[] -> ()");
}

TEST(Trace, BuildsNothingWhileDisabled)
{
    Hv::Test::LogCapture capture;
    int evaluated = 0;
    auto evaluate = [&evaluated] { return ++evaluated; };
    {
        Hv::SimpleLogger::Suppressor suppressor;
        HV_TRACE_FREE(evaluate());
        HV_LOG_ERROR("error " << evaluate());
    }
    Hv::SimpleLogger::disable();
    HV_LOG_FATAL("fatal " << evaluate());
    Hv::SimpleLogger::enable();
    EXPECT_EQ(evaluated, 0);
    EXPECT_EQ(capture.count(log4cplus::ERROR_LOG_LEVEL, "error") + capture.count(log4cplus::FATAL_LOG_LEVEL, "fatal"), 0u);

    HV_TRACE_FREE(evaluate());
    EXPECT_EQ(evaluated, 1);
    EXPECT_EQ(capture.count(log4cplus::TRACE_LOG_LEVEL, "[] -> (evaluate() = 1)"), 1u);
}

TEST(LogLine, WritesNarrowTextAsTheNarrowStreamDoes)
{
    // Field width and adjustment apply to text as to any value, and a string keeps its zero bytes.
    Hv::Log::Line line;
    line << std::setw(5) << std::string("ab") << '|' << std::left << std::setw(4) << "cd" << '|'
         << std::string_view("ef") << std::string("g\0h", 3);
    EXPECT_EQ(line.str(), std::string("   ab|cd  |efg\0h", 16));
}

TEST(LogLine, FindsEachValuesOperatorFromACallerWithOperatorsOfItsOwn)
{
    Hv::Test::LogCapture capture;
    Caller::logMixed("tray");
    EXPECT_EQ(capture.messages(log4cplus::WARN_LOG_LEVEL),
              std::vector<std::string>{"name tray, port 8, own, system:2"});
}

} // namespace
