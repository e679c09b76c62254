#include "HvLogCapture.h"
#include "HvTrace.h"

#include <gtest/gtest.h>

namespace {

TEST(Trace, BuildsNothingWhileDisabled)
{
    Hv::Test::LogCapture capture;
    int evaluated = 0;
    {
        Hv::SimpleLogger::Suppressor outer;
        {
            Hv::SimpleLogger::Suppressor inner;
            HV_TRACE_FREE(++evaluated);
        }
        // Suppressors do not nest: the end of the inner one enabled logging again.
        EXPECT_TRUE(Hv::SimpleLogger::isEnabled());
    }
    Hv::SimpleLogger::disable();
    HV_LOG_FATAL("fatal " << ++evaluated);
    { Hv::SimpleLogger::Suppressor suppressor; }
    // The end of a suppressor enables logging whatever it was before.
    EXPECT_TRUE(Hv::SimpleLogger::isEnabled());
    EXPECT_EQ(evaluated, 0);

    HV_TRACE_FREE(++evaluated);
    EXPECT_EQ(evaluated, 1);
    EXPECT_EQ(capture.count(log4cplus::TRACE_LOG_LEVEL, "[] -> (++evaluated = 1)"), 1u);
}

} // namespace
