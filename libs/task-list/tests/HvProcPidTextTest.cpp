#include "HvProcPidText.h"

#include <gtest/gtest.h>

#include <boost/optional/optional_io.hpp>

#include <string>

namespace {

using namespace Hv::TaskList::ProcPidText;

boost::optional<uint32_t> uid(const std::string& status)
{
    return effectiveUid(status.data(), status.size());
}

TEST(ProcPidText, ProcessNameDropsOneLineEnd)
{
    EXPECT_EQ(processName("bash\n", 5), "bash");
    EXPECT_EQ(processName("bash", 4), "bash");
    EXPECT_EQ(processName("kworker/0:1-events\n", 19), "kworker/0:1-events");
    EXPECT_EQ(processName("two words\n\n", 11), "two words\n");
    EXPECT_EQ(processName("", 0), "");
}

TEST(ProcPidText, EffectiveUidIsSecondNumberOfUidLine)
{
    const std::string status = "Name:\tsleep\nUmask:\t0022\nState:\tS (sleeping)\nTgid:\t4242\nPPid:\t1\n"
                               "TracerPid:\t0\nUid:\t1000\t1001\t1002\t1003\nGid:\t100\t100\t100\t100\n";
    EXPECT_EQ(uid(status), 1001u);
    EXPECT_EQ(uid("Uid:\t0\t0\t0\t0"), 0u);
    EXPECT_EQ(uid("Uid:\t5\t4294967295\t0\t0\n"), 4294967295u);
    // A name that looks like the key does not count: only a line that starts with it.
    EXPECT_EQ(uid("Name:\tUid:\t7\t8\nUid:\t1\t2\t3\t4\n"), 2u);

    EXPECT_FALSE(uid(""));
    EXPECT_FALSE(uid("Name:\tsleep\nGid:\t1\t2\t3\t4\n"));
    EXPECT_FALSE(uid("Uid:\t1000\n"));
    EXPECT_FALSE(uid("Uid:\t1000\tx\t0\t0\n"));
    EXPECT_FALSE(uid("Uid:\t1000\t4294967296\t0\t0\n"));
}

} // namespace
