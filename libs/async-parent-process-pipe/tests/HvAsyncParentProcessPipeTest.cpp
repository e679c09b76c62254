#include "HvAsyncParentProcessPipe.h"
#include "HvLogCapture.h"
#include "HvTestSupport.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

// Standard input as the parent may leave it.
enum Input { FromParent, DevNull, Closed };

class ParentProcessPipeTest : public ::testing::TestWithParam<Input> {};

// The pipe takes over descriptors 0, 1 and 2, so each case runs in a process of its own.
TEST_P(ParentProcessPipeTest, FirstFailureStopsAllStreamsAndNotifiesOnce)
{
    Hv::Test::inFreshProcess([input = GetParam()] {
        // Whatever the test opens is open before descriptor 0 may be closed, or would take its number.
        Hv::Test::LogCapture capture;
        boost::asio::io_context io;
        int parent[2];
        ASSERT_EQ(::pipe(parent), 0);
        if (input == FromParent)
            ::dup2(parent[0], 0);
        else if (input == DevNull)
            ::dup2(::open("/dev/null", O_RDONLY), 0);
        else
            ::close(0);
        auto pipe = std::make_shared<Hv::Async::ParentProcessPipe>(io);
        int calls = 0, transfers = 0;
        pipe->onAppStreamError([&] { ++calls; });
        const auto read = [&] { pipe->in()->asyncRead(std::make_shared<Hv::Async::AppStream::Buffer>(), [&] { ++transfers; }); };
        read();
        // The parent goes away.
        ::close(parent[1]);
        ASSERT_TRUE(Hv::Test::runUntil(io, [&] { return calls == 1; }));

        // Neither a later failure nor a late subscriber is heard; nothing transfers any more.
        pipe->onAppStreamError([&] { calls += 10; });
        read();
        pipe->out()->asyncWrite(std::make_shared<Hv::Async::AppStream::Buffer>(std::vector<char>{'x'}), [&] { ++transfers; });
        io.restart();
        io.poll();
        EXPECT_EQ(calls, 1);
        EXPECT_EQ(transfers, 0);
        EXPECT_EQ(capture.count(log4cplus::ERROR_LOG_LEVEL, " on assigning in in-" + std::to_string(::getpid())), input == Closed ? 1u : 0u);
    });
}

INSTANTIATE_TEST_SUITE_P(Inputs, ParentProcessPipeTest, ::testing::Values(FromParent, DevNull, Closed));
